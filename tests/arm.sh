#!/bin/bash
# SPDX-License-Identifier: MIT
# arm.sh [CTEST-OPTION...]: builds for ARM, which most controllers are, runs the tests in an emulator,
# and checks the size of the add-in.
set -euo pipefail
cd "$(dirname "$0")/.."

# How much of a small controller's flash the stripped add-in may use.
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

echo "== Size of the add-in for armhf"
cmake --preset armhf-release >/dev/null
cmake --build --preset armhf-release --target corvane_fb_lib
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
arm-linux-gnueabihf-strip -o "$stripped" build/armhf-release/lib/corvane_fb_lib.so
bytes=$(stat -c %s "$stripped")
echo "corvane_fb_lib.so: $bytes bytes, at most $most_bytes"
[ "$bytes" -le $most_bytes ] || failed=1
exit $failed
