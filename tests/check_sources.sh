#!/bin/bash
# SPDX-License-Identifier: MIT
# Checks of the sources that need no build: format, self-contained headers, test files that no list
# names, cited standards, words, shell scripts.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
failed=0

# All files but those that git ignores. If git fails, it prints the reason.
files=$(git ls-files --cached --others --exclude-standard) || exit 1
mapfile -t sources < <(grep -E '\.(cpp|h)$' <<<"$files")
if ! clang-format --dry-run --Werror "${sources[@]}"; then
    echo "Not formatted according to .clang-format; to fix: clang-format -i FILE" >&2
    failed=1
fi

for header in "${sources[@]}"; do
    [[ $header == *.h ]] || continue
    if ! grep -q '^#pragma once$' "$header"; then
        echo "$header has no #pragma once" >&2
        failed=1
    fi
    source=${header%.h}.cpp
    [ -f "$source" ] || continue
    first=$(grep -m 1 '^#include' "$source")
    # (An example that is built by itself names its header without a folder.)
    if [ "$first" != "#include \"$header\"" ] && [ "$first" != "#include \"${header##*/}\"" ]; then
        echo "$source includes something before its own header, so that header may depend on it" >&2
        failed=1
    fi
done

while read -r file; do
    list=$(dirname "$file")
    until [ -f "$list/CMakeLists.txt" ]; do list=$(dirname "$list"); done
    name=${file#"$list"/}
    if ! grep -qE "(^|[ (])$name( |\)|\$)" "$list/CMakeLists.txt"; then
        echo "$file is in no list of $list/CMakeLists.txt, so it is never built" >&2
        failed=1
    fi
done < <(grep -E '^(tests/.*_test|(addins|libs|runtime|examples|benchmarks)/.*)\.cpp$' <<<"$files")

while read -r cited; do
    if ! grep -qwF "${cited##* }" docs/standards.md; then
        echo "$cited is cited in a source, but docs/standards.md does not list it" >&2
        failed=1
    fi
done < <(grep -ohE '(RFC [0-9]+|3GPP TS [0-9]+\.[0-9]+|ITU-T [A-Z]\.[0-9]+)' "${sources[@]}" | sort -u)

# shellcheck disable=SC2016 # nothing here is to be expanded
words=$(sed -n '/^```words$/,/^```$/{/^```/d;p}' CONTRIBUTING.md)
[ -n "$words" ] || { echo "CONTRIBUTING.md has no list of words" >&2; failed=1; }
if git grep --untracked -nIE -f <(echo "$words") -- . ':!CONTRIBUTING.md' >&2 ||
    git log --format='commit %h: %s%n%b' | grep -nE -f <(echo "$words") >&2; then
    echo "These lines contain words that CONTRIBUTING.md lists under Words" >&2
    failed=1
fi

mapfile -t scripts < <(
    while read -r file; do
        [ -f "$file" ] && head -n 3 "$file" | grep -qE '^#!/bin/(ba)?sh|^# shellcheck shell=' && echo "$file"
    done <<<"$files")
shellcheck "${scripts[@]}" || failed=1

exit $failed
