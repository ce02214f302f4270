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
here=$(realpath "$(dirname "$0")")

python=/usr/bin/python3 # Debian's, which finds Debian's modules
$python -c 'import aiosmtpd' 2>/dev/null || {
    if [ -x "$here/../packaging/packages.sh" ]; then
        "$here/../packaging/packages.sh" example
    else
        echo "mail_report: please install python3-aiosmtpd" >&2
        exit 1
    fi
}

folder=$(mktemp -d)
sink=
clean_up() {
    [ -z "$sink" ] || kill "$sink" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mkfifo "$folder/sink-output"
setpriv --pdeathsig TERM $python "$here/mail_sink.py" "$folder/mails" >"$folder/sink-output" &
sink=$!
exec 3<"$folder/sink-output"
word=
read -r word port <&3 || true
if [ "$word" != READY ]; then
    echo "mail_report: the mail server did not start" >&2
    exit 1
fi
cat <&3 & # shows the messages that arrive

echo "The mail server is listening on port $port."
cd "$folder" # where the report is written
export STATE_DIRECTORY=$folder/state # the store of messages: each run of the example begins with an empty one
"$corvane" run "$here/mail_report.lua" "$@" -- 127.0.0.1 "$port" plc s3cret \
    pump3@plant.example operator@plant.example report.csv
