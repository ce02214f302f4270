#!/bin/sh
# SPDX-License-Identifier: MIT
# start_pump.sh NUMBER: what pump_station.lua starts when an operator has acknowledged.
# On a real machine it would switch a relay; here it says that it ran.
echo "start_pump.sh: pump $1 is switched on"
