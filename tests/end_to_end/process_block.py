#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""process_block.py CORVANE: whatever PROCESS has started ends with the program, however that ends, and the cycle
does not notice how long a process lasts."""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

corvane = sys.argv[1]
PATIENCE = 60

PROGRAM = """
io.stdout:setvbuf("no")
jobs = {}
for i, command in ipairs {
    "sleep 1000", "sleep 1000 & sleep 1001", "trap '' TERM; while :; do sleep 1000; done", "sleep 1000 & exit 0" } do
  jobs[i] = PROCESS.new { Command = command, Execute = true }
end
function cycle()
  local running = 0
  for _, job in ipairs(jobs) do
    job()
    if job.Pid > 0 or job.Done then running = running + 1 end
  end
  if running == #jobs and not told then
    told = true
    print("running")
  end
  if told then END end
end
"""


def left(marker):
    """The processes of this run, by their environment."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if marker.encode() in (entry / "environ").read_bytes():
                    found.append((entry / "cmdline").read_bytes())
            except OSError:
                pass
    return found


def run(end, number, status):
    """Starts the program, ends it, and looks at what is left."""
    with tempfile.TemporaryDirectory() as folder:
        path = folder + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(PROGRAM.replace("END", end))
        marker = f"PROCESS_BLOCK_TEST={folder}"
        name, value = marker.split("=")
        process = subprocess.Popen([corvane, "run", path, "--cycle", "5ms"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env={**os.environ, name: value})
        assert process.stdout.readline() == "running\n", process.communicate()
        assert end or len(left(marker)) >= 5, left(marker)
        begin = time.monotonic()
        if number:
            process.send_signal(number)
        _, log = process.communicate(timeout=PATIENCE)
        took = time.monotonic() - begin
        assert process.returncode == status, (process.returncode, log)
        remaining = left(marker)
        assert not remaining, (end, number, remaining)
        overruns = re.search(r"(\d+) overruns", log)
        print(f"{end or number.name}: nothing is left after {took:.1f} s; {overruns and overruns[0]}")


run("", signal.SIGTERM, 0)
run("", signal.SIGINT, 0)
run("plc.stop()", None, 0)
run('error("broken")', None, 1)
