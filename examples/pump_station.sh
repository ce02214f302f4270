#!/bin/bash
# SPDX-License-Identifier: MIT
# pump_station.sh: runs pump_station.lua with a simulated modem and a local mail server, shows who says
# what, and cleans up afterwards. CORVANE: the command to run it with (default: corvane).
set -euo pipefail
corvane=$(realpath "$(command -v "${CORVANE:-corvane}")") || {
    echo "pump_station: command '${CORVANE:-corvane}' not found; set CORVANE to its path" >&2
    exit 1
}
here=$(realpath "$(dirname "$0")")
python=/usr/bin/python3 # Debian's, which finds Debian's modules
$python -c 'import aiosmtpd' 2>/dev/null || {
    [ -x "$here/../packaging/packages.sh" ] || {
        echo "pump_station: please install python3-aiosmtpd" >&2
        exit 1
    }
    "$here/../packaging/packages.sh" example
}

folder=$(mktemp -d)
helpers=()
# shellcheck disable=SC2317 # the trap calls it
clean_up() {
    trap - EXIT INT TERM
    [ ${#helpers[@]} -eq 0 ] || kill "${helpers[@]}" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# spoken_by NAME: copies standard input line by line, with the name before each line.
spoken_by() {
    sed -u "s/^/$(printf '%-10s' "$1") | /"
}

echo "A pump station with a modem and a mailbox. The water rises; the limit is 400 cm."

mkfifo "$folder/sink"
setpriv --pdeathsig TERM $python "$here/mail_sink.py" "$folder/mails" >"$folder/sink" &
helpers+=($!)
exec 3<"$folder/sink"
read -r word port <&3 || word=
[ "$word" = READY ] || { echo "pump_station: the mail server did not start" >&2; exit 1; }
spoken_by mailbox <&3 &

mkfifo "$folder/phone"
setpriv --pdeathsig TERM "$corvane" modem --link "$folder/modem" --network-delay 500ms \
    --scenario "$here/pump_station.scenario" >"$folder/phone" &
helpers+=($!)
exec 4<"$folder/phone"
read -r word _ <&4 || word=
[ "$word" = ready ] || { echo "pump_station: the modem did not start" >&2; exit 1; }
spoken_by phone <&4 &

cd "$folder" # where the report is written
export STATE_DIRECTORY=$folder/state # the store of messages: each run of the example begins with an empty one
status=0
{
    "$corvane" run "$here/pump_station.lua" --modem 1="$folder/modem" --log-level warning -- \
        127.0.0.1 "$port" plc s3cret pump3@plant.example operator@plant.example 2>&1 ||
        echo "ended with status $?" >"$folder/failed"
} | spoken_by controller || status=$?
[ ! -f "$folder/failed" ] || { cat "$folder/failed"; status=1; }
exit $status
