# 32-bit x86 on a 64-bit Debian machine: the multilib compiler, the headers of the 64-bit
# packages, and the static libraries that scripts/setup unpacks.
set(MORVU_I386_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/i386-root CACHE PATH
  "Where the i386 packages are unpacked")
set(i386_libraries ${MORVU_I386_ROOT}/usr/lib/i386-linux-gnu)
if(NOT EXISTS ${i386_libraries})
  message(FATAL_ERROR "No i386 libraries in ${i386_libraries}: run scripts/setup x86")
endif()

set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)

set(CMAKE_LIBRARY_PATH ${i386_libraries})
set(BOOST_LIBRARYDIR ${i386_libraries})
set(Boost_NO_BOOST_CMAKE ON)
set(Boost_NO_SYSTEM_PATHS OFF)
set(Boost_USE_STATIC_LIBS ON)

# Where the kernel runs no 32-bit programs, what is built is run by this emulator.
set(emulator_choice ${CMAKE_CURRENT_LIST_DIR}/../build/x86-emulator)
if(EXISTS ${emulator_choice})
  file(STRINGS ${emulator_choice} emulator)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${emulator_choice})
  if(emulator)
    find_program(MORVU_X86_EMULATOR ${emulator} REQUIRED)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${MORVU_X86_EMULATOR})
  endif()
endif()
