#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""modem_page.py PROJECT CORVANE: docs/modem_simulator.md shows what happens, and leaves nothing out.

The modem plays the ```scenario block, holds the ```dialogue, and prints the ```output.
The dialogues of docs/modem.md are also held with a simulated modem.
"""
import os
import re
import select
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import read_blocks
from simulated_modem import PATIENCE, SimulatedModem

project, corvane = sys.argv[1:]
with open(project + "/docs/modem_simulator.md", encoding="utf-8") as file:
    page = file.read()
blocks = {block.language: block.text for block in read_blocks(project, "docs/modem_simulator.md")}


def read_lines(modem, count):
    """Returns the next `count` lines that are not empty; a prompt counts as one."""
    text = ""
    while len(lines := [line for line in re.split(r"[\r\n]+", text) if line]) < count:
        assert select.select([modem], [], [], PATIENCE)[0], f"{count} lines expected, but got: {text!r}"
        text += os.read(modem, 4096).decode()
    return lines


def hold(dialogue, modem):
    for said, answers in re.findall(r"^> (.*)\n((?:< .*\n)*)", dialogue, re.MULTILINE):
        expected = [line[2:] for line in answers.splitlines()]
        os.write(modem, (said[:-2] + "\x1a" if said.endswith("^Z") else said + "\r").encode())
        answered = read_lines(modem, len(expected))
        assert answered == expected, f"{said}: {answered}, but the page says {expected}"


with tempfile.NamedTemporaryFile("w", suffix=".txt") as scenario:
    scenario.write(blocks["scenario"])
    scenario.flush()
    options = ("--time", "2026-01-31T12:00:00+01:00", "--scenario", scenario.name)
    with SimulatedModem(corvane, *options) as modem:
        line = os.open(modem.device, os.O_RDWR | os.O_NOCTTY)
        hold(blocks["dialogue"], line)
        os.close(line)
        modem.end()
        printed = modem.output.split("\n", 1)[1]  # after the ready line
        assert printed == blocks["output"], printed

# What a user asks a modem by hand. Modems differ in whether they echo what is typed.
by_hand = [block.text for block in read_blocks(project, "docs/modem.md") if block.language == "dialogue"]
assert len(by_hand) == 2, by_hand
with SimulatedModem(corvane, "--quirk", "no-echo") as modem:
    line = os.open(modem.device, os.O_RDWR | os.O_NOCTTY)
    for dialogue in by_hand:
        hold(dialogue, line)
    os.close(line)
    modem.await_output("sent to +15550101234: Hello\n")

help_text = subprocess.run([corvane, "modem", "--help"], capture_output=True, text=True,
                           timeout=PATIENCE, check=True).stdout
options = re.findall(r"^  (?:-\w,)?(--[\w-]+)", help_text, re.MULTILINE)
names = re.findall(r"^  ([a-z][a-z-]+) ", help_text, re.MULTILINE)
assert len(options) > 10 and len(names) > 30, help_text
missing = [name for name in options + names if not re.search(rf"`{name}\b", page) and name != "--help"]
assert not missing, f"docs/modem_simulator.md does not name {missing}"
