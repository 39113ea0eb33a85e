# What the product is built on: Boost, Crypto++ and nlohmann's JSON from the system's packages.
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS date_time filesystem)
# Headers alone: the 32-bit build takes those of the 64-bit package.
find_path(MORVU_JSON_INCLUDE nlohmann/json.hpp REQUIRED)
find_library(CRYPTOPP_LIBRARY cryptopp REQUIRED)

# A program whose property MORVU_ARCHIVES is set links their archives: little of them is used,
# and to load the shared ones takes most of a start of morvussd. The shared library can not: on
# x86_64 the archives hold no position-independent code.
add_library(morvu_dependencies INTERFACE)
function(morvu_link_dependency archive shared)
  find_library(MORVU_${archive}_ARCHIVE lib${archive}.a)
  if(MORVU_${archive}_ARCHIVE AND NOT Boost_USE_STATIC_LIBS)
    set(links_archives $<BOOL:$<TARGET_PROPERTY:MORVU_ARCHIVES>>)
    set(shared "$<IF:${links_archives},${MORVU_${archive}_ARCHIVE},${shared}>")
  endif()
  target_link_libraries(morvu_dependencies INTERFACE ${shared})
endfunction()
foreach(component date_time filesystem)
  morvu_link_dependency(boost_${component} Boost::${component})
endforeach()
morvu_link_dependency(cryptopp ${CRYPTOPP_LIBRARY})
target_link_libraries(morvu_dependencies INTERFACE Threads::Threads ${CMAKE_DL_LIBS} rt)
