#!/bin/sh
# SPDX-License-Identifier: MIT
# disk_alarm.sh FOLDER PERCENT LIMIT: what disk_watch.lua starts when the limit is passed.
# On a real machine it would delete old logs or call somebody; here it says that it ran.
echo "disk_alarm.sh: $1 is $2 % full, the limit is $3 %: this is where logs would be cleaned up"
