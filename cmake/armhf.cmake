# Cross build for 32-bit ARM, hard float. Compiler, C and C++ library are the distribution's cross
# packages; the other libraries come from the folder ATSC_SYSROOT (scripts/armhf-sysroot fills it).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(ATSC_SYSROOT "$ENV{ATSC_SYSROOT}" CACHE PATH "Folder with the unpacked armhf packages")
# CMake reads this file again for each compiler check.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ATSC_SYSROOT)
if(NOT IS_DIRECTORY "${ATSC_SYSROOT}/usr/include")
  message(FATAL_ERROR "ATSC_SYSROOT is not a sysroot: '${ATSC_SYSROOT}'")
endif()

set(CMAKE_FIND_ROOT_PATH ${ATSC_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Libraries of the sysroot find each other at link time and, by the inherited DT_RPATH of the
# program, at run time.
set(sysroot_link
    "-Wl,-rpath-link,${ATSC_SYSROOT}/usr/lib/arm-linux-gnueabihf -Wl,--disable-new-dtags")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${sysroot_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${sysroot_link}")
# Supports files over 2 GiB and folders with 64-bit positions. Suppresses notes on an ABI change of
# old compilers. Some headers of OpenSSL depend on the architecture.
set(CMAKE_CXX_FLAGS_INIT
    "-D_FILE_OFFSET_BITS=64 -Wno-psabi -isystem ${ATSC_SYSROOT}/usr/include/arm-linux-gnueabihf")

# The emulator only has to find the loader and the C library.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L /usr/arm-linux-gnueabihf)
