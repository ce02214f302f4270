#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""retain.py CORVANE: values that plc.retain keeps, when the program is killed at any moment, when the disk is full,
when the program ends in each of its ways, and when it is started twice."""
import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from patience import TIME_FACTOR
from tiny_disk import TinyDisk, can_mount

corvane = sys.argv[1]
KILLS = 8
LATEST = 1 + 0.5 * TIME_FACTOR  # seconds: one that may be lost, and what a busy machine needs for a write
# Both counters have the same value at the end of each cycle, and different ones within it.
COUNTING = """
local t = plc.retain("counters", { first = 0, runs = 0, second = 0, last = {}, text = string.rep("x", 20000) })
assert(t.first == t.second, t.first .. " is not " .. t.second)
t.runs = t.runs + 1
print("start", t.first)
function cycle()
  t.first = t.first + 1
  t.last[t.first % 100 + 1] = t.first
  t.second = t.second + 1
  if t.first % 10 == 0 then print(plc.clock(), t.first) end
end
"""


def start(program, *options, before=(), **environment):
    return subprocess.Popen([*before, corvane, "run", program, *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            text=True, env=os.environ | {"STATE_DIRECTORY": state} | environment)


def run(text, *options):
    """Status, output and log of a program."""
    path = folder + "/program.lua"
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    process = start(path, *options)
    out, err = process.communicate(timeout=60)
    return process.returncode, out, err


def kept():
    with open(state + "/retain.json", encoding="utf-8") as file:
        return json.load(file)["values"]


def counting():
    path = folder + "/counting.lua"
    with open(path, "w", encoding="utf-8") as file:
        file.write(COUNTING)
    return path


def killed_at_any_moment():
    random.seed(5)
    program = counting()
    last = 0  # what the runs before have certainly kept
    for _ in range(KILLS):
        process = start(program, "--cycle", "2ms")
        started = int(process.stdout.readline().split()[1])
        assert started >= last, f"{started} instead of at least {last}: a run was lost"
        seen = []  # the runtime's clock, and the counter
        end = time.monotonic() + random.uniform(0.05, 2 * LATEST)
        while time.monotonic() < end:
            clock, counter = process.stdout.readline().split()
            seen.append((float(clock), int(counter)))
        process.send_signal(signal.SIGKILL)
        rest, errors = process.communicate(timeout=60)
        assert "cannot" not in errors, errors
        for line in rest.splitlines():
            if len(line.split()) == 2 and line.endswith("0"):
                seen.append((float(line.split()[0]), int(line.split()[1])))
        # A second before the kill, and what a slow disk takes for a write.
        last = max([started] + [counter for clock, counter in seen if clock < seen[-1][0] - LATEST])
    assert sorted(os.listdir(state)) in (["retain.json"], ["retain.json", "retain.json.new"]), os.listdir(state)
    assert kept()["counters"]["first"] > 100, kept()


def ended_in_each_way():
    one_more = 'local t = plc.retain("ways", {n = 0}) t.n = t.n + 1 print(t.n) '
    ways = [(one_more + "plc.stop(3)", 3), (one_more + "os.exit(4)", 4),
            (one_more + "function cycle() t.n = t.n + 1 error('broken') end", 1),
            (one_more + "function cycle() t.n = t.n + 1 plc.stop() end", 0)]
    for (text, status), n in zip(ways, (1, 2, 3, 5)):
        code, out, _ = run(text, "--cycle", "1ms")
        assert (code, out) == (status, f"{n}\n"), (code, out, n)
    process = start(counting(), "--cycle", "2ms")
    process.stdout.readline()
    counter = [int(process.stdout.readline().split()[1]) for _ in range(5)][-1]
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=60)
    assert kept()["counters"]["first"] >= counter
    assert kept()["ways"]["n"] == 6, kept()["ways"]
    before = os.stat(state + "/retain.json").st_ino
    code, out, _ = run(one_more, "--check")
    assert code == 2 and out == "1\n", "--check starts with the program's own values"
    assert os.stat(state + "/retain.json").st_ino == before, "and keeps nothing"


def started_twice():
    program = counting()
    first = start(program, "--cycle", "2ms")
    first.stdout.readline()
    text = 'print(plc.retain("counters", {first = "own"}).first) function cycle() end'
    code, out, err = run(text, "--cycles", "3")
    assert (code, out) == (0, "own\n"), (code, out)
    assert err.count("another program keeps its values in") == 1, err
    first.send_signal(signal.SIGTERM)
    _, errors = first.communicate(timeout=60)
    assert "cannot" not in errors, errors
    assert kept()["counters"]["first"] > 0


def on_a_full_disk():
    if not can_mount():
        print("no full disk: file systems cannot be mounted here")
        return
    disk = TinyDisk(folder + "/disk")
    process = start(counting(), "--cycle", "5ms", before=disk.command, STATE_DIRECTORY=disk.folder)
    process.stdout.readline()
    name = f"/proc/{process.pid}/root{disk.folder}/retain.json"
    wait_for(lambda: os.path.exists(name), process)
    disk.fill(process)
    inode = os.stat(name).st_ino
    error = next_error(process)
    assert "retained values cannot be kept" in error and "No space left" in error, error
    content = open(name, encoding="utf-8").read()
    assert json.loads(content)["values"]["counters"]["first"] > 0
    assert os.stat(name).st_ino == inode
    disk.make_room()
    error = next_error(process)
    assert "retained values are written again" in error, error
    assert os.stat(name).st_ino != inode
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=60)


def next_error(process):
    """The next line of the log about retained values."""
    while True:
        line = process.stderr.readline()
        if "retained values" in line and "copying" not in line or not line:
            return line


def wait_for(condition, process):
    end = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < end and process.poll() is None
        process.stdout.readline()


with tempfile.TemporaryDirectory() as folder:
    state = folder + "/state"
    killed_at_any_moment()
    ended_in_each_way()
    started_twice()
    on_a_full_disk()
