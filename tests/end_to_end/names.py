#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""names.py PROJECT PAGE...: the files, folders, functions and types that the pages name exist in the code.

It checks `code` that is a path or a name, and the names in Mermaid diagrams.
"""
import os
import re
import subprocess
import sys

project, *pages = sys.argv[1:]
OTHERS = {"sequenceDiagram", "pcall", "RTLD_GLOBAL", "SONAME"}  # of Mermaid, Lua and the loader
listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"], cwd=project,
                        capture_output=True, text=True, check=True).stdout.split("\n")
files = {name for name in listed if os.path.isfile(f"{project}/{name}")}
places = {os.path.basename(name) for name in files} | files
places |= {"/".join(name.split("/")[:depth]) + "/" for name in files for depth in range(1, name.count("/") + 1)}

words = {}  # of each source file
for name in files:
    if name.endswith((".cpp", ".h", ".map", ".txt", ".cmake")) and not name.startswith("tests/"):
        with open(f"{project}/{name}", encoding="utf-8") as file:
            words[name] = set(re.findall(r"\w+", file.read()))


def missing_names(text):
    pictures = "".join(re.findall(r"^```mermaid\n(.*?)^```$", text, re.MULTILINE | re.DOTALL))
    prose = re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)
    spans = set(re.findall(r"`([^`\n]+)`", prose)) | set(re.findall(r"\b\w*[a-z][A-Z]\w*\b|\b\w+\.cpp\b", pictures))
    for span in sorted(spans):
        if re.fullmatch(r"[\w/]+/|[\w/]+\.(cpp|h|md|map)", span):
            if span not in places:
                yield span
        elif re.fullmatch(r"[A-Za-z_]\w*(::\w+)*(<\w+>)?(\(\))?", span):
            # "Class::Function": one file must have both.
            wanted = set(re.findall(r"\w+", span))
            if span not in OTHERS and not any(wanted <= has for has in words.values()):
                yield span


failures = []
for page in pages:
    with open(f"{project}/{page}", encoding="utf-8") as opened:
        failures += [f"{page} names {name}, which does not exist" for name in missing_names(opened.read())]
print("\n".join(failures) or f"{len(pages)} pages: every name exists")
sys.exit(1 if failures else 0)
