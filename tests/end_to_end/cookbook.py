#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""cookbook.py PROJECT: the cookbook shows the programs of examples/cookbook and their tests, word for word, and all of
them. (pages.py runs the tests.)"""
import os
import sys

sys.dont_write_bytecode = True
from page import check_files, read_blocks

project = sys.argv[1]
page = "docs/cookbook.md"
shown = [f"examples/cookbook/{block.name}" for block in read_blocks(project, page) if block.name]
check_files(project, page, shown)
files = {f"examples/cookbook/{name}" for name in os.listdir(f"{project}/examples/cookbook")}
assert files == set(shown), files ^ set(shown)
print(f"{len(shown)} files are as the page shows them")
