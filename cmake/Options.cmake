option(MORVU_BUILD_TESTS "Build the tests" ON)
option(MORVU_FUZZ "Build the fuzz targets with libFuzzer (clang)" OFF)
set(MORVU_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")

add_library(morvu_options INTERFACE)
target_compile_options(morvu_options INTERFACE
  -Wall -Wextra -Werror -Wnon-virtual-dtor -Woverloaded-virtual
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 warns of overlapping copies in std::string's own operator+ (its bug 105651).
  target_compile_options(morvu_options INTERFACE -Wshadow=local -Wno-restrict)
endif()
# What Debian's packages are built with. Without optimization there is nothing to fortify.
set(is_release $<CONFIG:RelWithDebInfo,Release,MinSizeRel>)
target_compile_options(morvu_options INTERFACE
  "$<${is_release}:-Wformat-security;-fstack-protector-strong>")
target_compile_definitions(morvu_options INTERFACE $<${is_release}:_FORTIFY_SOURCE=2>)
target_link_options(morvu_options INTERFACE $<${is_release}:LINKER:-z,relro,-z,now>)
if(MORVU_SANITIZE)
  set(sanitize -fsanitize=${MORVU_SANITIZE} -fno-sanitize-recover=all)
  target_compile_options(morvu_options INTERFACE ${sanitize} -fno-omit-frame-pointer
    # GCC takes what a sanitizer adds for paths on which nothing is set.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(morvu_options INTERFACE ${sanitize})
endif()
if(MORVU_FUZZ)
  target_compile_options(morvu_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# Tests and the simulator are read in a debugger or not at all: they build a third faster so.
add_library(morvu_test_options INTERFACE)
if(NOT MORVU_SANITIZE)
  target_compile_options(morvu_test_options INTERFACE -O0 -g1 -U_FORTIFY_SOURCE)
endif()

# Before a built program that the build itself runs. CMake puts an emulator there only when it
# compiles for another system.
set(run_built ${CMAKE_CROSSCOMPILING_EMULATOR})
