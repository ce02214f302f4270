#!/bin/bash
# SPDX-License-Identifier: MIT
# store_registry_test.sh SOURCE INCLUDES COMPILER...: add-ins share one list of open stores, whichever of the
# compilers made them (./run takes another one than the packages): its symbol is unique in the process. A
# compiler that is not installed is reported, and skipped (status 77).
set -euo pipefail
source=$1 includes=$2
nm=${NM:-nm}
shift 2

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
status=0
for compiler in "$@"; do
    if ! command -v "$compiler" >/dev/null; then
        echo "skipped: $compiler is not installed"
        [ $status != 0 ] || status=77
        continue
    fi
    "$compiler" -std=c++20 -fPIC -fvisibility=hidden -I"$includes" -shared \
        -DCORVANE_STORE_REGISTRY='"a_registry_v1_2_3"' "$source" -o "$folder/registry.so"
    kind=$("$nm" -D "$folder/registry.so" | awk '$NF ~ /registry(E|_v1_2_3)$/ {print $(NF - 1)}')
    if [ "$kind" != u ]; then
        echo "$compiler: the symbol's type is '$kind', not 'u' (unique in the process)"
        status=1
    fi
    if ! "${nm%nm}readelf" --relocs --wide "$folder/registry.so" | grep 'GLOB_DAT.*a_registry_v1_2_3' >/dev/null; then
        echo "$compiler: the library uses its own copy, not that of the process"
        status=1
    fi
done
exit $status
