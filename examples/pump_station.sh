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
# shellcheck source=examples/mail_server.sh
. "$(dirname "$0")/mail_server.sh"
exec "$python" "$here/pump_station_story.py" "$corvane" "$@"
