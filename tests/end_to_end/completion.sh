#!/bin/bash
# SPDX-License-Identifier: MIT
# completion.sh PROJECT CORVANE: completes command lines as bash would after the tab key.
set -euo pipefail
project=$1 corvane=$2
# shellcheck source=/dev/null # packaging/completion.bash
source "$project/packaging/completion.bash"
# There is no line editor here that could set the options.
# shellcheck disable=SC2317 # the completion calls it
compopt() { :; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch pump.lua 'two words.lua' pump.conf addin.so messages.db notes.txt
mkdir programs

# expect COMPLETIONS WORD...: the completions of the last word, which may be empty.
failed=0
expect() {
    local expected=$1 found
    COMP_WORDS=("$corvane" "${@:2}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _corvane corvane "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    found=$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | paste -sd '|')
    if [ "$found" != "$expected" ]; then
        echo "corvane ${*:2}: expected $expected, found $found"
        failed=1
    fi
}

expect "run" r
expect "blocks" bl
expect "--help|--version" --
expect "--log-level" run --log
expect "--config" run pump.lua --con
expect "--check" run --che
expect "--json" blocks --j
expect "" blocks --cyc
expect "test" t
expect "list|log-level" l
expect "watch" w
expect "--once" watch --on
expect "debug" log-level pump d
expect "check-modem" c
expect "/dev/null" check-modem /dev/nul
expect "--send" check-modem /dev/null --se
expect "--tap|--timeout" test --t
expect "programs|pump.lua" test p
expect "SEND_EMAIL|SEND_SMS" blocks SEND_
expect "debug" run --log-level d
expect "debug|error|info|off|trace|warning" run --log-level ""
expect "" run --cycle ""
expect "programs|pump.lua|two words.lua" run ""
expect "two words.lua" run two
expect "programs|pump.lua" run --check p
expect "addin.so|programs" run --addin ""
expect "programs|pump.conf" run --config ""
expect "messages.db|programs" messages --store ""
expect "notes.txt" run --web-token-file not
expect "cancel|limit|list|retry|show" messages ""
expect "list" messages --store messages.db lis
expect "--all|--help" messages list --
expect "decode|encode" pdu ""
expect "--help|--json|--to" pdu encode --
expect "" run pump.lua -- --
expect "--help|--version" fly --

# The names of the programs that run.
export XDG_RUNTIME_DIR=$folder
echo 'function cycle() end' >running_pump.lua
"$corvane" run running_pump.lua 2>/dev/null &
program=$!
trap 'kill $program; wait; rm -rf "$folder"' EXIT
for ((tries = 0; tries < 600; ++tries)); do
    [ ! -S corvane/running_pump.sock ] || break
    sleep 0.1
done
expect "running_pump" watch runn
expect "running_pump" log-level runn
exit $failed
