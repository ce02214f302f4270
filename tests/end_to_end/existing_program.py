#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""existing_program.py PROJECT CORVANE: runs the example existing_program, once to its end and once interrupted."""
import os
import signal
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from process_group import await_end

project, corvane = sys.argv[1:]


def start(folder, *words):
    return subprocess.Popen([project + "/examples/existing_program.sh", *words], text=True, start_new_session=True,
                            env={**os.environ, "CORVANE": corvane, "TMPDIR": folder}, stdout=subprocess.PIPE)


with tempfile.TemporaryDirectory() as folder:
    example = start(folder)
    output = example.communicate(timeout=60)[0]
    assert example.returncode == 0, output
    for expected in ("the lamp is on\n", "modem: sent to +15550101234: The disk is ", "e-mail: code 0\n",
                     "Subject: Somebody has asked\n", "+15550101234 has asked, and got: The disk is ",
                     "Done: 1 questions answered.\n"):
        assert expected in output, (expected, output)
    assert os.listdir(folder) == [], os.listdir(folder)
    await_end(example.pid)

    # Ctrl-C: the terminal sends the signal to all processes in it.
    example = start(folder, "0")
    while "modem: sent to" not in (line := example.stdout.readline()):
        assert line, "it ended early"
    os.killpg(example.pid, signal.SIGINT)
    example.communicate(timeout=60)
    assert os.listdir(folder) == [], os.listdir(folder)
    await_end(example.pid)
print("existing_program works and leaves nothing behind")
