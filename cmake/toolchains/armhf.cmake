# 32-bit ARM Linux, hard float, by Debian's cross compiler. KEL_SYSROOT holds what the build needs for that architecture
# beside the C and C++ libraries; scripts/test-armhf fills it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about compilers before 7
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(KEL_SYSROOT "" CACHE PATH "Unpacked packages of the target architecture")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEL_SYSROOT)
set(CMAKE_FIND_ROOT_PATH ${KEL_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Header-only libraries are the same for every architecture.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)

set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${KEL_SYSROOT}/usr/lib/arm-linux-gnueabihf)
