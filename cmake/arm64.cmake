# SPDX-License-Identifier: MIT
# Toolchain for 64-bit ARM (ARMv8).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(architecture arm64)
set(triplet aarch64-linux-gnu)
set(emulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
