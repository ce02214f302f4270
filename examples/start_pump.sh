#!/bin/sh
# SPDX-License-Identifier: MIT
# start_pump.sh NUMBER: pump_station.lua starts this when an operator has acknowledged.
# On a real machine it would switch a relay; here it only prints that it ran.
echo "start_pump.sh: pump $1 is switched on"
