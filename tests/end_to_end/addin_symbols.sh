#!/bin/bash
# SPDX-License-Identifier: MIT
# addin_symbols.sh ADDIN INCLUDE_FOLDER LUA_LIBRARY NM COMPILER [OPTION...]: the add-in exports its
# entry points and nothing else, and needs nothing that a Corvane runtime does not have: the
# contract's functions, Lua, and the C and C++ libraries.
set -euo pipefail
addin=$1 contract=$2 lua=$3 nm=$4
compiler=("${@:5}")

expected="DisposeAddin
InitAddin
RegisterSTLibsReadSMSFB
RegisterSTLibsSendEmailFB
RegisterSTLibsSendSMSFB
RegisterSTLibsShellFB
RegisterSTLibsShellResFB
luaopen_ReadSMSFB
luaopen_SendEmailFB
luaopen_SendSMSFB
luaopen_ShellFB
luaopen_ShellResFB"
exported=$("$nm" -D --defined-only "$addin" | awk '{print $3}' | LC_ALL=C sort)
if [ "$exported" != "$expected" ]; then
    echo "The add-in exports:"
    diff <(echo "$expected") <(echo "$exported") || true
    exit 1
fi

# Everything that the system's libraries and Lua define. (A sanitizer stands in for some of theirs.)
libraries=("$lua")
for name in libc.so.6 libm.so.6 libstdc++.so.6 libgcc_s.so.1; do
    libraries+=("$("${compiler[@]}" -print-file-name=$name)")
done
known=$("$nm" -D --defined-only "${libraries[@]}" | awk 'NF == 3 {sub(/@.*/, "", $3); print $3}' | LC_ALL=C sort -u)
needed=$("$nm" -D --undefined-only "$addin" | awk '{sub(/@.*/, "", $NF); print $NF}' | LC_ALL=C sort -u)
foreign=$(LC_ALL=C comm -23 <(echo "$needed") <(echo "$known"))
status=0
checked=0
while read -r symbol; do
    case $symbol in
    # What compilers and sanitizers bring themselves.
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
done <<<"$foreign"
# Without any the check itself would be broken: every block needs the contract.
[ "$checked" -ge 10 ] || { echo "Only $checked symbols of the contract found"; exit 1; }

# An addition of our runtime: on another one the symbol is null, and the call is skipped.
if ! "$nm" -D --undefined-only "$addin" | grep -E ' w ModemPortDriverUnregister$' >/dev/null; then
    echo "The add-in does not refer weakly to ModemPortDriverUnregister, which other runtimes lack"
    status=1
fi
exit $status
