#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""adding_a_block.py PROJECT CORVANE ADDIN: the page shows the files of the example, word for word,
and the program prints what the page says."""
import re
import subprocess
import sys

project, corvane, addin = sys.argv[1:]
with open(project + "/docs/adding_a_block.md", encoding="utf-8") as file:
    page = file.read()

shown = re.findall(r"^`(\S+)`:\n\n```\w+\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
assert [name for name, _ in shown] == ["counter_fb.h", "counter_fb.cpp", "counter_addin.cpp", "counter.lua"]
for name, text in shown:
    with open(f"{project}/examples/counter_addin/{name}", encoding="utf-8") as file:
        assert file.read() == text, f"the page shows another {name} than the example has"

output = re.search(r"^\$ corvane run .*?\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)[1]
command = [corvane, "run", project + "/examples/counter_addin/counter.lua", "--addin", addin, "--cycle", "5ms"]
result = subprocess.run(command, capture_output=True, text=True, timeout=60)
assert result.returncode == 0 and result.stdout == output, result
