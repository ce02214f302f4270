#!/bin/bash
# SPDX-License-Identifier: MIT
# mail_report.sh: runs mail_report.lua with a local mail server, and cleans up afterwards.
# CORVANE: the command to run it with (default: corvane). Further arguments go to `corvane run`.
set -euo pipefail
corvane=$(command -v "${CORVANE:-corvane}") || {
    echo "mail_report: command '${CORVANE:-corvane}' not found; set CORVANE to its path" >&2
    exit 1
}
corvane=$(realpath "$corvane")
# shellcheck source=examples/mail_server.sh
. "$(dirname "$0")/mail_server.sh"

start_mail_server
echo "The mail server is listening on port $port."
cd "$folder" # where the report is written
export STATE_DIRECTORY=$folder/state # the store of messages: each run of the example begins with an empty one
"$corvane" run "$here/mail_report.lua" "$@" -- 127.0.0.1 "$port" plc s3cret \
    pump3@plant.example operator@plant.example report.csv
