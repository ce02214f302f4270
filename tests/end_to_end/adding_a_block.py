#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""adding_a_block.py PROJECT CORVANE ADDIN: the page shows the files of the example word for word, and
the program prints what the page says."""
import subprocess
import sys

sys.dont_write_bytecode = True
from page import check_files, commands, read_blocks

project, corvane, addin = sys.argv[1:]
PAGE = "docs/adding_a_block.md"
check_files(project, PAGE, "examples/counter_addin",
            ["counter_fb.h", "counter_fb.cpp", "counter_addin.cpp", "CMakeLists.txt", "counter.lua"])

# What the first commands build has already been built, possibly in another folder.
build, session = [block.text for block in read_blocks(project, PAGE) if block.language == "console"]
assert "--target counter_addin corvane_cli\n" in build, build
[command] = commands(session)
words = [{"build/debug/bin/corvane": corvane, "build/debug/lib/counter_addin.so": addin}.get(word, word)
         for word in command.split()]
assert corvane in words and addin in words, command
result = subprocess.run(words, cwd=project, capture_output=True, text=True, timeout=60, check=False)
assert result.returncode == 0 and result.stdout == session.split("\n", 1)[1], result
