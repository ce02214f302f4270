#!/bin/sh
# SPDX-License-Identifier: MIT
# service NAME: runs /etc/corvane/NAME.lua, with the options in /etc/corvane/NAME.conf if it is there.
program=/etc/corvane/$1.lua
config=/etc/corvane/$1.conf
if [ -e "$config" ]; then
    exec /usr/bin/corvane run "$program" --config "$config"
fi
exec /usr/bin/corvane run "$program"
