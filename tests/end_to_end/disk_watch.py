#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""disk_watch.py PROJECT CORVANE: runs the example disk_watch as its header describes."""
import re
import subprocess
import sys

project, corvane = sys.argv[1:]


def run(*words):
    command = [corvane, "run", "--cycle", "10ms", project + "/examples/disk_watch.lua", "--", *words]
    return subprocess.run(command, capture_output=True, text=True, timeout=60)


# A limit that every disk has reached: one alarm, whatever the number of measurements.
result = run("/", "0", "2")
assert result.returncode == 0, result
percent = re.match(r"/ is (\d+) % full \(limit 0 %\)\n", result.stdout)
assert percent, result
measured = f"/ is {percent[1]} % full"
assert result.stdout.count(measured + " (limit 0 %)\n") == 2, result
assert result.stdout.endswith("Done: 2 measurements.\n"), result
assert result.stdout.count("disk_alarm.sh: " + measured) == 1, result
assert result.stderr.count(f"info    / has reached its limit: {percent[1]} %\n") == 1, result

# A limit that no disk can reach: no alarm.
result = run("/", "101", "1")
assert result.returncode == 0 and "alarm" not in result.stdout and "reached" not in result.stderr, result

# A folder that does not exist, with characters that a shell would interpret: the program says so.
result = run("/no such; folder$(false)'", "1", "1")
assert result.returncode == 0, result
assert "df printed no percentage: df: " in result.stdout and "No such file or directory" in result.stdout, result

# A limit that is not a number is refused at once.
result = run("/", "high")
assert result.returncode == 1 and "LIMIT and MEASUREMENTS must be numbers" in result.stderr, result
