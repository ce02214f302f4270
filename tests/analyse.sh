#!/bin/bash
# SPDX-License-Identifier: MIT
# analyse.sh: runs clang-tidy (.clang-tidy) on the programs, and cppcheck on the programs and the tests. Silent
# when neither complains.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
log=build/analysis.log
mkdir -p build
failed=0

cmake --preset tidy >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
# The sources of a target are compiled as one file, which includes .cpp files; and clang does not know all of GCC's
# flags.
if ! run-clang-tidy -p build/tidy -j "$(nproc)" -quiet -extra-arg=-Wno-unknown-warning-option \
    -checks=-bugprone-suspicious-include >"$log" 2>&1; then
    sed 's/\x1b\[[0-9;]*m//g' "$log" | grep -A 3 -E '(error|warning): ' | sort -u >&2
    echo "clang-tidy complains; its whole output is in $log" >&2
    failed=1
fi

cppcheck --enable=warning,performance,portability --std=c++20 --quiet -j "$(nproc)" --inline-suppr \
    --library=googletest --error-exitcode=1 -Iinclude -I. \
    addins libs runtime include examples fuzz benchmarks tests || failed=1

exit $failed
