# What the product is built on: Boost and Crypto++ from the system's packages.
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS thread date_time filesystem regex)
find_library(CRYPTOPP_LIBRARY cryptopp REQUIRED)

add_library(morvu_dependencies INTERFACE)
target_link_libraries(morvu_dependencies INTERFACE
  Boost::thread Boost::date_time Boost::filesystem Boost::regex
  ${CRYPTOPP_LIBRARY} Threads::Threads ${CMAKE_DL_LIBS} rt)
