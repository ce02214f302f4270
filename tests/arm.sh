#!/bin/bash
# SPDX-License-Identifier: MIT
# arm.sh [CTEST-OPTION...]: builds for ARM, which most controllers are, runs the tests in an emulator,
# checks the size of the add-in, and tells sizes and memory of all.
set -euo pipefail
cd "$(dirname "$0")/.."

# How much of a small 32-bit controller's flash the stripped add-in of the five blocks may use.
most_bytes=300000

packaging/packages.sh build test arm
failed=0
for architecture in armhf arm64; do
    packaging/sysroot.sh $architecture
    echo "== Build for $architecture"
    cmake --preset $architecture >/dev/null
    cmake --build --preset $architecture
    echo "== All tests for $architecture, in the emulator"
    # Four at once on two cores: most tests wait for something most of the time.
    ctest --preset $architecture --parallel 4 "$@" || failed=1
done

stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
for architecture in armhf arm64; do
    echo "== Size of the add-ins for $architecture"
    cmake --preset $architecture-release >/dev/null
    cmake --build --preset $architecture-release
    strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' build/$architecture-release/CMakeCache.txt)
    for addin in "build/$architecture-release/lib"/corvane_*.so; do
        "$strip" -o "$stripped" "$addin"
        bytes=$(stat -c %s "$stripped")
        echo "$architecture: ${addin##*/}: $bytes bytes"
        if [ "$architecture ${addin##*/}" = "armhf corvane_fb_lib.so" ] && [ "$bytes" -gt $most_bytes ]; then
            echo "corvane_fb_lib.so may have at most $most_bytes bytes"
            failed=1
        fi
    done
done

echo "== Memory that the add-ins take"
benchmarks/resident_memory.py || failed=1
exit $failed
