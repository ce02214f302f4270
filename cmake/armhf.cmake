# SPDX-License-Identifier: MIT
# Toolchain for 32-bit ARM with a floating-point unit (ARMv7).
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(architecture armhf)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
