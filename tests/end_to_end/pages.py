#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pages.py PROJECT CORVANE PAGE...: runs the control programs that the pages show.

A fenced block ```lua is a whole program. It runs for 50 cycles of 5 ms, or until it stops, and must
end without an error or a warning. A block ```output behind it is what the program prints, exactly;
"# " lines of it stand for one line of any text.
"""
import re
import subprocess
import sys
import tempfile

project, corvane, *pages = sys.argv[1:]
failures = []


def matches(expected, actual):
    pattern = "".join(
        "[^\n]*\n" if line.startswith("# ") else re.escape(line) + "\n" for line in expected.splitlines()
    )
    return re.fullmatch(pattern, actual)


def check(page, program, expected):
    with tempfile.TemporaryDirectory() as folder:
        path = folder + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(program)
        command = [corvane, "run", path, "--cycle", "5ms", "--cycles", "50"]
        result = subprocess.run(command, capture_output=True, text=True, timeout=60)
    clean = not re.search(r" (warning|error) ", result.stderr)
    if result.returncode != 0 or not clean or (expected is not None and not matches(expected, result.stdout)):
        failures.append(f"{page}:\n{program}\nstatus {result.returncode}\n{result.stdout}{result.stderr}")


for page in pages:
    with open(f"{project}/{page}", encoding="utf-8") as file:
        blocks = re.findall(r"^```(\w+)\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
    programs = 0
    for position, (language, text) in enumerate(blocks):
        if language != "lua":
            continue
        following = blocks[position + 1] if position + 1 < len(blocks) else ("", "")
        check(page, text, following[1] if following[0] == "output" else None)
        programs += 1
    if programs == 0:
        failures.append(f"{page}: shows no program")

print("\n\n".join(failures) or f"{len(pages)} pages: every program does what its page says")
sys.exit(1 if failures else 0)
