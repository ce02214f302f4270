#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""messages_command.py CORVANE: the store of a program that runs, is killed and runs again, looked at and changed with
`corvane messages`."""
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from simulated_modem import SimulatedModem

[corvane] = sys.argv[1:]
LIMIT = 60  # seconds; only a failing test takes that long

QUEUE_TWO = """
io.stdout:setvbuf("line")
local alarm = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234; +15550105678", Text = "Pump 3 has stopped" }
local stored, failed, waiting
function cycle()
  alarm.Execute = true
  alarm()
  if stored ~= alarm.Stored or failed ~= alarm.Failed or waiting ~= alarm.ErrorId then
    stored, failed, waiting = alarm.Stored, alarm.Failed, alarm.ErrorId
    print(tostring(stored), failed, waiting, alarm.ErrorText)
  end
end
"""

# Calling the block is enough: the outbox sends what waits.
SEND_WHAT_WAITS = """
local outbox = SMS_OUTBOX.new { Port = 1 }
function cycle()
  outbox()
end
"""


class Program:
    def __init__(self, folder, text, modem):
        self.folder = folder
        file = folder + "/pump.lua"
        with open(file, "w", encoding="utf-8") as program:
            program.write(text)
        with open(folder + "/log", "a", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", corvane, "run", file, "--cycle", "10ms", "--modem", "1=" + modem],
                stdout=subprocess.PIPE, stderr=log, text=True, env=environment(folder))

    def await_line(self, wanted):
        for line in self.process.stdout:
            if wanted in line:
                return
        raise AssertionError(f"the program ended without {wanted}")

    def end(self, number):
        self.process.send_signal(number)
        self.process.wait(LIMIT)
        self.process.stdout.close()


def environment(folder):
    return {**os.environ, "STATE_DIRECTORY": folder + "/state"}


def messages(folder, *words):
    return subprocess.run([corvane, "messages", *words], capture_output=True, text=True, timeout=LIMIT, check=False,
                          env=environment(folder))


def states(folder):
    result = messages(folder, "--json")
    assert result.returncode == 0, result.stderr
    return [json.loads(line)["state"] for line in result.stdout.splitlines()]


with tempfile.TemporaryDirectory() as folder:
    first = Program(folder, QUEUE_TWO, folder + "/missing")
    first.await_line("true")
    assert states(folder) == ["waiting", "waiting"], messages(folder).stdout
    end = time.monotonic() + LIMIT
    while "the device of port 1 is not there" not in messages(folder).stdout:
        assert time.monotonic() < end, messages(folder).stdout

    second = Program(folder, QUEUE_TWO, folder + "/missing")
    second.await_line(f"in use by process {first.process.pid}:")
    second.end(signal.SIGKILL)

    result = messages(folder, "cancel", "2")
    assert (result.returncode, result.stdout) == (0, "cancelled\n"), result
    first.await_line("\t1\t")
    assert states(folder) == ["waiting", "cancelled"]

    first.end(signal.SIGKILL)
    assert states(folder) == ["waiting", "cancelled"]
    assert messages(folder, "limit", "5").returncode == 0
    result = messages(folder, "retry", "2")
    assert result.returncode == 0, result
    assert states(folder) == ["waiting", "waiting"], messages(folder).stdout

    with SimulatedModem(corvane) as modem:
        third = Program(folder, SEND_WHAT_WAITS, modem.device)
        while states(folder) != ["sent", "sent"]:
            pass
        third.end(signal.SIGTERM)
        modem.end()
    for receiver in "+15550101234", "+15550105678":
        assert modem.output.count(f"sent to {receiver}: Pump 3 has stopped") == 1, modem.output
    assert messages(folder, "limit").stdout == "limit: 5 messages per hour and port or mail account\n"
print("The messages are listed, cancelled, retried and sent once")
