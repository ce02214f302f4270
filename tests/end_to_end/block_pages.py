#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""block_pages.py PROJECT CORVANE [OPTION...]: every block type that `CORVANE blocks OPTION...` lists has a page
that states the type of each of its variables; README.md and docs/README.md list the page, and a test runs it."""
import json
import pathlib
import re
import subprocess
import sys

project = pathlib.Path(sys.argv[1])
listing = subprocess.run([sys.argv[2], "blocks", "--json", *sys.argv[3:]], capture_output=True, text=True, check=True)
tests = "".join(path.read_text(encoding="utf-8") for path in project.glob("tests/end_to_end/*")
                if path.name == "CMakeLists.txt" or path.name.endswith("_pages.py"))
failures = []


def described(page):
    """The variables of the page's table with their types; "| `Login`, `Password` | STRING |" are two."""
    for names, types in re.findall(r"^\| (`\w+`(?:, `\w+`)*) \| ([A-Z_]+(?:, [A-Z_]+)*) \|", page, re.MULTILINE):
        names, types = re.findall(r"\w+", names), types.split(", ")
        yield from zip(names, types if len(types) > 1 else types * len(names))


blocks = json.loads(listing.stdout)
assert blocks, "no block types"
for block in blocks:
    words = re.sub(r"(?<=[a-z])(?=[A-Z])", "_", block["name"]).lower()
    name = f"docs/blocks/{words}.md"
    if not (project / name).exists():
        failures.append(f"the block {block['name']} has no page {name}")
        continue
    variables = dict(described((project / name).read_text(encoding="utf-8")))
    for variable in block["variables"]:
        if variables.get(variable["name"]) != variable["type"]:
            failures.append(f"{name} has no row `{variable['name']}` | {variable['type']} in a table")
    for index, link in ("README.md", name), ("docs/README.md", name.removeprefix("docs/")):
        if f"({link})" not in (project / index).read_text(encoding="utf-8"):
            failures.append(f"{index} does not list {name}")
    if name not in tests:
        failures.append(f"no test runs what {name} shows: put it into a list in tests/end_to_end/CMakeLists.txt")
print("\n".join(failures) or f"{len(blocks)} blocks have their pages")
sys.exit(1 if failures else 0)
