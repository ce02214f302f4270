#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""man_page.py PROJECT CORVANE: the manual page names every subcommand and option, and no other."""
import re
import subprocess
import sys

project, corvane = sys.argv[1:]


def run(*words):
    return subprocess.run(words, capture_output=True, text=True, check=True).stdout


def options_of_help(*subcommand):
    return set(re.findall(r"^ +(?:-\w,)?(--[a-z-]+)", run(corvane, *subcommand, "--help"), re.MULTILINE))


def subcommands(prefix=()):
    """Every subcommand, as words."""
    found = re.search(r"^Subcommands:\n(.*)", run(corvane, *prefix, "--help"), re.MULTILINE | re.DOTALL)
    names = re.findall(r"^  ([a-z-]+) ", found[1], re.MULTILINE) if found else []
    return [words for name in names for words in ((*prefix, name), *subcommands((*prefix, name)))]


page_file = project + "/docs/corvane.md"
with open(page_file, encoding="utf-8") as file:
    page = file.read()
sections = dict(re.findall(r"^## (.*?)\n(.*?)(?=^## |\Z)", page, re.MULTILINE | re.DOTALL))

options = {words: options_of_help(*words) for words in subcommands()}
expected = {"Options of " + " ".join(("corvane", *words)): names for words, names in options.items() if names > {"--help"}}
assert len(expected) >= 2, expected
written = {
    title: set(re.findall(r"^- (?:`-\w`, )?`(--[a-z-]+)", text, re.MULTILINE))
    for title, text in sections.items()
    if title.startswith("Options of ")
}
assert written == expected, f"in the page: {written}\nin --help: {expected}"

# The manual page made from it is complete, and man reads it without complaint.
roff = run(sys.executable, project + "/packaging/man_page.py", page_file, "1.2.3")
assert roff.startswith('.TH CORVANE 1 "" "corvane 1.2.3"'), roff[:80]
for section in sections:
    assert f".SH {section.upper()}\n" in roff, section
for words in re.findall(r"^- `([^`]+)`", page, re.MULTILINE):
    assert words.replace("-", "\\-") in roff, words
result = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z"], input=roff, capture_output=True, text=True, check=True)
assert result.stderr == "", result.stderr
print("The manual page is complete")
