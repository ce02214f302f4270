#!/bin/bash
# SPDX-License-Identifier: MIT
# pump_station.sh [--web]: runs pump_station.lua with a simulated modem and a local mail server, shows who says
# what, and cleans up afterwards. A page shows the program while it runs; with --web it runs until Ctrl-C.
# CORVANE: the command to run it with (default: corvane).
set -euo pipefail
stay=()
case $# in
0) ;;
*)
    if [ "$*" != --web ]; then
        echo "pump_station: unknown arguments: $*; the only option is --web" >&2
        exit 2
    fi
    stay=(stay)
    ;;
esac
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
[ ${#stay[@]} -eq 0 ] || trap 'exit 0' INT # the way in which it is meant to end
trap 'exit 143' TERM

# spoken_by NAME: copies standard input line by line, with the name before each line, also after Ctrl-C: who
# speaks ends by then.
spoken_by() {
    trap '' INT
    sed -u "s/^/$(printf '%-10s' "$1") | /"
}

# Always the same port, if it is free: a page that was left open shows the next run.
web_port=$($python - <<'END'
import socket
for port in 8080, 0:
    try:
        # As the runtime does: connections of the last run that are just ending do not matter.
        print(socket.create_server(("127.0.0.1", port)).getsockname()[1])
        break
    except OSError:
        pass
END
)

echo "A pump station with a modem and a mailbox. The water rises; the limit is 400 cm."
if [ ${#stay[@]} -eq 0 ]; then
    echo "The program's page: http://127.0.0.1:$web_port/ (./run --web keeps it running)"
else
    echo "The program's page: http://127.0.0.1:$web_port/ (Ctrl-C ends the program)"
fi

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
    "$corvane" run "$here/pump_station.lua" --modem 1="$folder/modem" --log-level warning \
        --web "$web_port" -- \
        127.0.0.1 "$port" plc s3cret pump3@plant.example operator@plant.example "${stay[@]}" 2>&1 ||
        echo "ended with status $?" >"$folder/failed"
} | spoken_by controller || status=$?
[ ! -f "$folder/failed" ] || { cat "$folder/failed"; status=1; }
exit $status
