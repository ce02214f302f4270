#!/bin/bash
# SPDX-License-Identifier: MIT
# existing_program.sh [QUESTIONS]: runs existing_program.lua with a local mail server, and a simulated modem that plays
# existing_program.scenario. CORVANE: the command to run it with (default: corvane).
set -euo pipefail
: "${CORVANE:=corvane}"
# shellcheck source=examples/mail_server.sh
. "$(dirname "$0")/mail_server.sh"

start_mail_server
setpriv --pdeathsig TERM "$CORVANE" modem --link "$folder/modem" --scenario "$here/existing_program.scenario" \
    > >(sed -u 's/^/modem: /') &
helpers+=($!)
until [ -e "$folder/modem" ]; do
    kill -0 "${helpers[1]}" 2>/dev/null || exit 1
    sleep 0.05
done
"$CORVANE" run "$here/existing_program.lua" --cycle 20ms --modem "1=$folder/modem,patience=60s" -- \
    127.0.0.1 "$port" plc s3cret "$@"
