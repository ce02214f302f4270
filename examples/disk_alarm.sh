#!/bin/sh
# SPDX-License-Identifier: MIT
# disk_alarm.sh FOLDER PERCENT LIMIT: disk_watch.lua starts this when the limit is reached.
# On a real machine it would delete old logs or call somebody; here it only prints that it ran.
echo "disk_alarm.sh: $1 is $2 % full, the limit is $3 %: this is where logs would be cleaned up"
