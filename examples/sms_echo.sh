#!/bin/bash
# SPDX-License-Identifier: MIT
# sms_echo.sh [MESSAGES]: runs sms_echo.lua with a simulated modem that plays sms_echo.scenario.
# CORVANE: the command to run it with (default: corvane). Lines from the modem begin with "modem: ".
set -euo pipefail
here=$(dirname "$0")
: "${CORVANE:=corvane}"

folder=$(mktemp -d)
simulator=
clean_up() {
    [ -z "$simulator" ] || kill "$simulator" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

"$CORVANE" modem --link "$folder/modem" --scenario "$here/sms_echo.scenario" \
    > >(sed -u 's/^/modem: /') &
simulator=$!
until [ -e "$folder/modem" ]; do
    kill -0 "$simulator" 2>/dev/null || exit 1
    sleep 0.05
done
export STATE_DIRECTORY=$folder/state # the store of messages: each run of the example begins with an empty one
"$CORVANE" run "$here/sms_echo.lua" --cycle 20ms --modem "1=$folder/modem" -- "$@"
