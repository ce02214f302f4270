#!/bin/bash
# SPDX-License-Identifier: MIT
# addin_symbols.sh PROJECT LUA_LIBRARY NM ADDIN... -- COMPILER [OPTION...]: each add-in exports nothing but its entry
# points, those of the block types in its table, and the registry of open stores, and needs nothing but what a Corvane
# runtime has (the contract's functions and Lua), the C and C++ libraries, and the shared libraries that it names
# itself. What only our runtime has it needs weakly. docs/loading_the_addin.md lists what all of them need.
set -euo pipefail
project=$1 lua=$2 nm=$3
shift 3
addins=()
while [ "$1" != -- ]; do
    addins+=("$1")
    shift
done
compiler=("${@:2}")
contract=$project/include
page=$project/docs/loading_the_addin.md
status=0

defined_in() {
    "$nm" -D --defined-only "$@" | awk 'NF == 3 {sub(/@.*/, "", $3); print $3}' | LC_ALL=C sort -u
}

# check_exports ADDIN: it exports the functions of the types in addins/NAME/block_types.h.
check_exports() {
    local table classes expected exported
    table=$project/addins/$(basename "$1" .so)/block_types.h
    mapfile -t classes < <(sed -nE 's/^ *BLOCK_TYPE\((\w+)\),.*/\1/p' "$table")
    [ "${#classes[@]}" -ge 1 ] || { echo "No block types found in $table"; exit 1; }
    expected=$(printf '%s\n' DisposeAddin InitAddin \
        "${classes[@]/#/RegisterSTLibs}" "${classes[@]/#/luaopen_}" | LC_ALL=C sort)
    # Add-ins share one more thing (addins/exports.map), which is unique in the process.
    exported=$("$nm" -D --defined-only "$1" | awk '!($2 == "u" && / corvane_store_registry_/) {print $3}' | LC_ALL=C sort)
    if [ "$exported" != "$expected" ]; then
        echo "$1 exports:"
        diff <(echo "$expected") <(echo "$exported") || true
        status=1
    fi
}

# known_to ADDIN: everything that Lua and the libraries define that it names, the runtime's apart. (A sanitizer
# replaces some of it.)
known_to() {
    local libraries=("$lua") name
    for name in $("${nm%nm}readelf" -d "$1" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p') libm.so.6; do
        case $name in
        corvane.so | corvaneshare.so | opcua.so) ;;
        *) libraries+=("$("${compiler[@]}" -print-file-name="$name")") ;;
        esac
    done
    defined_in "${libraries[@]}"
}

# The functions that only our runtime has are declared as weak.
additions=$(cat "$contract"/corvane/*.h | tr '\n' ' ' |
    grep -oE '\w+\([^()]*\)\s*__attribute__\(\(weak\)\)' | sed -E 's/\(.*//' | LC_ALL=C sort)
[ "$(wc -l <<<"$additions")" -ge 4 ] || { echo "Only these additions found: $additions"; exit 1; }

listed= # what the page must list
for addin in "${addins[@]}"; do
    check_exports "$addin"
    needed=$("$nm" -D --undefined-only "$addin" | awk '{sub(/@.*/, "", $NF); print $NF}' | LC_ALL=C sort -u)
    listed+=$(LC_ALL=C comm -12 <(echo "$needed") <(defined_in "$lua"))$'\n'
    checked=0
    while read -r symbol; do
        case $symbol in
        # What compilers and sanitizers provide themselves.
        __asan_* | __ubsan_* | __tsan_* | __gmon_start__ | _ITM_*) continue ;;
        esac
        # "BaseLuaFB::~BaseLuaFB()", "vtable for BaseLuaFB", "logMsg": the last plain name must be the
        # contract's.
        name=$(c++filt "$symbol" | sed -E 's/^(vtable|typeinfo( name)?) for //; s/\[abi:[^]]*\]//g; s/\(.*//; s/.*:://; s/^~//')
        if ! grep -rqwF -- "$name" "$contract"; then
            echo "$addin needs $(c++filt "$symbol"), which is not in the contract's headers"
            status=1
        fi
        checked=$((checked + 1))
        listed+=$name$'\n'
    done < <(LC_ALL=C comm -23 <(echo "$needed") <(known_to "$addin"))
    # If there are none, the check itself is broken: every block needs the contract.
    [ "$checked" -ge 10 ] || { echo "Only $checked symbols of the contract found in $addin"; exit 1; }

    # On another runtime such a symbol is null, and the call is skipped.
    while read -r addition; do
        if ! "$nm" -D --undefined-only "$addin" | grep -E " w $addition\$" >/dev/null; then
            echo "$addin does not refer weakly to $addition, which other runtimes lack"
            status=1
        fi
    done < <(LC_ALL=C comm -12 <(echo "$needed") <(echo "$additions"))
done

# The page's table has a row for each library: "| `corvane.so` | `RegisterExternalSTLib`, ... |".
# shellcheck disable=SC2016 # backticks of the page
shown=$(grep -E '^\| .*`\.?[a-z]*\.so`' "$page" | cut -d'|' -f3 | grep -oE '`[A-Za-z0-9_:]+`' | sed -E 's/.*://; s/`//g')
if ! diff <(grep . <<<"$listed" | LC_ALL=C sort -u) <(LC_ALL=C sort -u <<<"$shown"); then
    echo "$page does not list something that an add-in needs (<), or lists something else (>)"
    status=1
fi
exit $status
