#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_report.py PROJECT CORVANE: runs the example mail_report, once to its end and once interrupted."""
import glob
import os
import re
import signal
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from process_group import await_end

project, corvane = sys.argv[1:]


def start(folder, *words):
    environment = {**os.environ, "CORVANE": corvane, "TMPDIR": folder}
    return subprocess.Popen([project + "/examples/mail_report.sh", *words], env=environment, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)


def nothing_is_left(folder, group):
    assert not glob.glob(folder + "/*"), glob.glob(folder + "/*")
    await_end(group)


with tempfile.TemporaryDirectory() as folder:
    example = start(folder, "--cycle", "10ms")
    output, log = example.communicate(timeout=60)
    # On a busy machine a cycle may be late.
    warnings = [line for line in log.splitlines() if " warning " in line and not re.search(r" warning overrun: ", line)]
    assert example.returncode == 0 and not warnings, (output, log)
    for expected in ("From: Pump station 3 <pump3@plant.example>", "To: operator@plant.example",
                     "Subject: Daily report of pump station 3", "The table is attached.", "report sent\n"):
        assert expected in output, (expected, output)
    assert re.search(r"^10 values, the highest 2\.\d{3} m\.$", output, re.MULTILINE), output
    assert re.search(r"^\[report\.csv: \d+ bytes\]$", output, re.MULTILINE), output
    nothing_is_left(folder, example.pid)

    # Ctrl-C while it measures: the terminal sends the signal to all processes in it.
    example = start(folder, "--cycle", "1h")
    while "is listening" not in example.stdout.readline():
        assert example.poll() is None, example.stderr.read()
    os.killpg(example.pid, signal.SIGINT)
    example.communicate(timeout=60)
    nothing_is_left(folder, example.pid)

# Without its arguments the program says what it requires.
result = subprocess.run([corvane, "run", project + "/examples/mail_report.lua"], capture_output=True, text=True)
assert result.returncode == 1 and "required: SERVER PORT" in result.stderr, result
print("mail_report works and leaves nothing behind")
