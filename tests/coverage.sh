#!/bin/bash
# SPDX-License-Identifier: MIT
# coverage.sh: how much of addins/, libs/ and runtime/ the unit and end-to-end tests run; `./test --coverage`.
# Fails if less of a folder ran than tests/coverage_table.py demands.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/coverage

packaging/packages.sh build test coverage
cmake --preset coverage >/dev/null
find $build -name '*.gcda' -delete
cmake --build --preset coverage
ctest --preset coverage --parallel 2

# The compiler gives every call a branch for the exception that it may throw; those branches, and
# unreachable ones, are left out.
gcovr --root . --object-directory $build --filter addins/ --filter libs/ --filter runtime/ -j 2 \
    --exclude-throw-branches --exclude-unreachable-branches \
    --json-summary $build/coverage.json --txt $build/coverage.txt \
    --html-details $build/coverage.html $build >/dev/null
echo "The lines that did not run: $build/coverage.txt, $build/coverage.html"
tests/coverage_table.py $build/coverage.json
