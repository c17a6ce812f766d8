# SPDX-License-Identifier: Apache-2.0
# The set's processor: ARMv7 with the calling convention of machines without a floating-point unit, for which Debian has
# a compiler and libraries. ZEL_ARM_ROOT is where the libraries are; ZEL_ARM_GCC is the compiler's version, where it is not
# the usual one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_SYSROOT "${ZEL_ARM_ROOT}")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEL_ARM_ROOT ZEL_ARM_GCC)

set(version "")
if(ZEL_ARM_GCC)
  set(version "-${ZEL_ARM_GCC}")
endif()
set(CMAKE_C_COMPILER "arm-linux-gnueabi-gcc${version}")
set(CMAKE_CXX_COMPILER "arm-linux-gnueabi-g++${version}")
# Without a word about what was passed otherwise before GCC 7: everything here is newer.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=softfp -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

# Programs that the build runs are this machine's; everything else is the set's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ZEL_ARM_ROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${ZEL_ARM_ROOT}/usr/lib/arm-linux-gnueabi/pkgconfig:${ZEL_ARM_ROOT}/usr/share/pkgconfig")
