# What the product is built on: Boost and Crypto++ from the system's packages. Their archives:
# little of them is used, and to load the shared ones (with ICU behind Boost.Regex) takes four
# fifths of a start of morvussd.
find_package(Threads REQUIRED)
set(Boost_USE_STATIC_LIBS ON)
find_package(Boost 1.74 REQUIRED COMPONENTS thread date_time filesystem regex)
find_library(CRYPTOPP_LIBRARY NAMES libcryptopp.a cryptopp REQUIRED)

add_library(morvu_dependencies INTERFACE)
target_link_libraries(morvu_dependencies INTERFACE
  Boost::thread Boost::date_time Boost::filesystem Boost::regex
  ${CRYPTOPP_LIBRARY} Threads::Threads ${CMAKE_DL_LIBS} rt)
