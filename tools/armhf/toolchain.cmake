# Cross-building for 32-bit ARM (armhf) with Debian's cross compiler against the sysroot
# that tools/armhf/fetch.sh unpacks:
#   cmake -S . -B build-armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=tools/armhf/toolchain.cmake
# NUV_ARMHF_SYSROOT (a CMake or environment variable) names another sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Only notes that GCC 7.1 changed how some arguments are passed; nothing here mixes in
# code built before that.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT NUV_ARMHF_SYSROOT)
  if(DEFINED ENV{NUV_ARMHF_SYSROOT})
    set(NUV_ARMHF_SYSROOT $ENV{NUV_ARMHF_SYSROOT})
  elseif(DEFINED ENV{NUV_ARMHF_CACHE})
    set(NUV_ARMHF_SYSROOT $ENV{NUV_ARMHF_CACHE}/sysroot)
  elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(NUV_ARMHF_SYSROOT $ENV{XDG_CACHE_HOME}/nuvmidi/armhf/sysroot)
  else()
    set(NUV_ARMHF_SYSROOT $ENV{HOME}/.cache/nuvmidi/armhf/sysroot)
  endif()
  # Kept, so that CMake's own re-runs from ninja find it without the environment.
  set(NUV_ARMHF_SYSROOT ${NUV_ARMHF_SYSROOT} CACHE PATH "The armhf sysroot")
endif()
if(NOT EXISTS ${NUV_ARMHF_SYSROOT}/usr/include)
  message(FATAL_ERROR "No armhf sysroot at ${NUV_ARMHF_SYSROOT}: run tools/armhf/fetch.sh")
endif()
# try_compile re-reads this file in a project of its own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NUV_ARMHF_SYSROOT)

set(CMAKE_SYSROOT ${NUV_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the sysroot's .pc files only, and prefixes their paths with it.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${NUV_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${NUV_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${NUV_ARMHF_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
