#!/bin/bash
# SPDX-License-Identifier: MIT
# addin_symbols.sh ADDIN TABLE INCLUDE_FOLDER LUA_LIBRARY PAGE NM COMPILER [OPTION...]: the add-in exports
# nothing but its entry points and those of the block types in its TABLE, and needs nothing but what a
# Corvane runtime has: the contract's functions, Lua, and the C and C++ libraries. The page
# (docs/loading_the_addin.md) lists what it needs.
set -euo pipefail
addin=$1 table=$2 contract=$3 lua=$4 page=$5 nm=$6
compiler=("${@:7}")

# The block types are those of the add-in's table.
mapfile -t classes < <(sed -nE 's/^ *BLOCK_TYPE\((\w+)\),.*/\1/p' "$table")
[ "${#classes[@]}" -ge 5 ] || { echo "Only ${#classes[@]} block types found in $table"; exit 1; }
expected=$(printf '%s\n' DisposeAddin InitAddin \
    "${classes[@]/#/RegisterSTLibs}" "${classes[@]/#/luaopen_}" | LC_ALL=C sort)
exported=$("$nm" -D --defined-only "$addin" | awk '{print $3}' | LC_ALL=C sort)
if [ "$exported" != "$expected" ]; then
    echo "The add-in exports:"
    diff <(echo "$expected") <(echo "$exported") || true
    exit 1
fi

defined_in() {
    "$nm" -D --defined-only "$@" | awk 'NF == 3 {sub(/@.*/, "", $3); print $3}' | LC_ALL=C sort -u
}

# Everything that the system's libraries and Lua define. (A sanitizer replaces some of it.)
libraries=("$lua")
for name in libc.so.6 libm.so.6 libstdc++.so.6 libgcc_s.so.1; do
    libraries+=("$("${compiler[@]}" -print-file-name=$name)")
done
known=$(defined_in "${libraries[@]}")
needed=$("$nm" -D --undefined-only "$addin" | awk '{sub(/@.*/, "", $NF); print $NF}' | LC_ALL=C sort -u)
foreign=$(LC_ALL=C comm -23 <(echo "$needed") <(echo "$known"))
status=0
checked=0
listed=$(LC_ALL=C comm -12 <(echo "$needed") <(defined_in "$lua")) # what the page must list
while read -r symbol; do
    case $symbol in
    # What compilers and sanitizers provide themselves.
    __asan_* | __ubsan_* | __tsan_* | __gmon_start__ | _ITM_*) continue ;;
    esac
    # "BaseLuaFB::~BaseLuaFB()", "vtable for BaseLuaFB", "logMsg": the last plain name must be the
    # contract's.
    name=$(c++filt "$symbol" | sed -E 's/^(vtable|typeinfo( name)?) for //; s/\[abi:[^]]*\]//g; s/\(.*//; s/.*:://; s/^~//')
    if ! grep -rqwF -- "$name" "$contract"; then
        echo "The add-in needs $(c++filt "$symbol"), which is not in the contract's headers"
        status=1
    fi
    checked=$((checked + 1))
    listed+=$'\n'$name
done <<<"$foreign"
# If there are none, the check itself is broken: every block needs the contract.
[ "$checked" -ge 10 ] || { echo "Only $checked symbols of the contract found"; exit 1; }

# Additions of our runtime: on another runtime such a symbol is null, and the call is skipped.
for addition in ModemPortDriverUnregister DescribeExternalSTLibValues; do
    if ! "$nm" -D --undefined-only "$addin" | grep -E " w $addition\$" >/dev/null; then
        echo "The add-in does not refer weakly to $addition, which other runtimes lack"
        status=1
    fi
done

# The page's table has a row for each library: "| `corvane.so` | `RegisterExternalSTLib`, ... |".
# shellcheck disable=SC2016 # backticks of the page
shown=$(grep -E '^\| .*`\.?[a-z]*\.so`' "$page" | cut -d'|' -f3 | grep -oE '`[A-Za-z0-9_:]+`' | sed -E 's/.*://; s/`//g')
if ! diff <(LC_ALL=C sort -u <<<"$listed") <(LC_ALL=C sort -u <<<"$shown"); then
    echo "$page does not list something that the add-in needs (<), or lists something else (>)"
    status=1
fi
exit $status
