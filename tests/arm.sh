#!/bin/bash
# SPDX-License-Identifier: MIT
# arm.sh [CTEST-OPTION...]: builds for ARM, which most controllers are, runs the tests in an emulator,
# checks the size of the add-in, and tells sizes and memory of all.
set -euo pipefail
cd "$(dirname "$0")/.."

# How much of a small controller's flash the stripped add-in of the five blocks may use.
most_bytes=300000

packaging/packages.sh build test arm
failed=0
for architecture in armhf arm64; do
    packaging/sysroot.sh $architecture
    echo "== Build for $architecture"
    cmake --preset $architecture >/dev/null
    cmake --build --preset $architecture
    echo "== All tests for $architecture, in the emulator"
    ctest --preset $architecture --parallel 2 "$@" || failed=1
done

echo "== Size of the add-ins for armhf, and the memory they take"
cmake --preset armhf-release >/dev/null
cmake --build --preset armhf-release
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
for addin in build/armhf-release/lib/corvane_*.so; do
    arm-linux-gnueabihf-strip -o "$stripped" "$addin"
    bytes=$(stat -c %s "$stripped")
    echo "${addin##*/}: $bytes bytes"
    if [ "${addin##*/}" = corvane_fb_lib.so ] && [ "$bytes" -gt $most_bytes ]; then
        echo "corvane_fb_lib.so may have at most $most_bytes bytes"
        failed=1
    fi
done
benchmarks/resident_memory.py || failed=1
exit $failed
