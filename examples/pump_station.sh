#!/bin/bash
# SPDX-License-Identifier: MIT
# pump_station.sh [--web]: tells the story of pump_station.lua with a simulated modem and a local mail server, and
# cleans up afterwards. A page shows the program while it runs; with --web it runs until Ctrl-C.
# CORVANE: the command to run it with (default: corvane).
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
exec $python "$here/pump_station_story.py" "$corvane" "$@"
