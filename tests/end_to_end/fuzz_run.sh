#!/bin/bash
# SPDX-License-Identifier: MIT
# fuzz_run.sh SOURCES: fuzz/run with scripts in place of its programs: how many run at a time, what it
# prints, and its status.
set -euo pipefail
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree"/{fuzz,packaging,bin,build/fuzz/fuzz}
cp "$1/fuzz/run" "$tree/fuzz/"
printf '#!/bin/sh\n' | tee "$tree/packaging/packages.sh" >"$tree/bin/cmake"

fail() {
    echo "fuzz_run: $1" >&2
    [ ! -f "$tree/output" ] || cat "$tree/output" >&2
    exit 1
}

# fuzzer NAME: a target that runs the commands on standard input.
fuzzer() {
    touch "$tree/fuzz/$1_fuzzer.cpp"
    { printf '#!/bin/bash\ncd "%s"\necho "begin %s" >>order\n' "$tree" "$1"; cat
        printf 'echo "end %s" >>order\necho "stat::number_of_executed_units: 12"\n' "$1"
    } >"$tree/build/fuzz/fuzz/$1_fuzzer"
    chmod +x "$tree/build/fuzz/fuzz/$1_fuzzer"
}

# run STATUS ARGUMENT...: runs fuzz/run, which must end with STATUS.
run() {
    local status=0 wanted=$1
    shift
    rm -f "$tree"/{order,met.*}
    PATH="$tree/bin:$PATH" "$tree/fuzz/run" "$@" >"$tree/output" 2>&1 || status=$?
    [ $status -eq "$wanted" ] || fail "fuzz/run $* ended with $status"
}

chmod +x "$tree/packaging/packages.sh" "$tree/bin/cmake"
fuzzer one <<<'true'
fuzzer two <<<'echo "options $*" >>order'

run 0 7
[ "$(grep -v options "$tree/order" | tr '\n' ' ')" = "begin one end one begin two end two " ] ||
    fail "without -j they did not run one after the other"
grep -q 'options -max_total_time=7 ' "$tree/order" || fail "the seconds were not passed on"
[ "$(grep -c '^[a-z]*  *12 executions .* 0 findings$' "$tree/output")" = 2 ] || fail "not two lines"

# Each of these ends only when both have begun.
for name in one two; do
    fuzzer $name <<'END'
touch met.$$
for i in {1..400}; do [ "$(ls met.* | wc -l)" = 2 ] && break; sleep 0.05; done
END
done
run 0 -j 2 -n 5
[ "$(head -n 2 "$tree/order" | grep -c begin)" = 2 ] || fail "with -j 2 they did not run together"

# Whichever ends first, a finding is the result.
fuzzer one <<<'echo "Test unit written to build/fuzz/findings/one-crash-1"; exit 1'
fuzzer two <<<'true'
run 1 -j 2
grep -q '^  replay: .*one_fuzzer build/fuzz/findings/one-crash-1$' "$tree/output" || fail "no replay line"
fuzzer one <<<'true'
fuzzer two <<<'exit 1'
run 1 -j 2
run 1

run 2 -j 0
run 2 -j many
run 2 three
