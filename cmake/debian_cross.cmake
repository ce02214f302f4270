# SPDX-License-Identifier: MIT
# Toolchain for a cross build with Debian's compilers, shared by cmake/armhf.cmake and
# cmake/arm64.cmake, which set `architecture`, `triplet` and `emulator`.
# packaging/sysroot.sh fills the sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${architecture})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/packages)
  message(FATAL_ERROR "No libraries for ${architecture} yet; run: packaging/sysroot.sh ${architecture}")
endif()

set(CMAKE_CXX_COMPILER ${triplet}-g++)
# Without this, GCC notes every argument that releases before GCC 7 passed differently.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${CMAKE_SYSROOT})
