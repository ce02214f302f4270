#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""man_page.py PAGE.md VERSION: writes the page to standard output as a manual page of section 1.

The page consists of a title (#), sections (##), paragraphs, lists of `- `term`: text` and indented
examples, with `bold` and *italic*. Anything else is refused, so that nothing is silently lost.
"""
import re
import sys


def inline(text):
    """Roff for a line's text. Dashes of options are ASCII, so that they can be searched for and copied."""
    parts = re.split(r"(`[^`]*`|\*[^*]+\*)", text)
    roff = ""
    for part in parts:
        bare = part.strip("`*") if part[:1] in ("`", "*") else part
        bare = bare.replace("\\", "\\e").replace("-", "\\-")
        roff += {"`": f"\\fB{bare}\\fR", "*": f"\\fI{bare}\\fR"}.get(part[:1], bare)
    return re.sub(r"^(?=['.])", r"\\&", roff)


def block(text, title):
    """Roff for one block of lines, none of them empty."""
    lines = text.split("\n")
    joined = " ".join(line.strip() for line in lines)
    if text.startswith("# "):
        return ""
    if text.startswith("## "):
        return f".SH {joined[3:].upper()}"
    if text.startswith("    "):
        return "\n".join([".PP", ".RS 4", ".nf", *(inline(line[4:]) for line in lines), ".fi", ".RE"])
    if text.startswith("- "):
        items = re.split(r"(?:^|\n)- ", text)[1:]
        roff = []
        for item in items:
            match = re.fullmatch(r"((?:`[^`]+`(?:, )?)+): (.*)", re.sub(r"\s+", " ", item))
            if not match:
                sys.exit(f"{title}: a list item is not of the form `term`: text: {item}")
            roff.append(f".TP\n{inline(match[1])}\n{inline(match[2])}")
        return "\n".join(roff)
    if re.match(r"[#|>`]{3}|[|>]|\d+\.", text):
        sys.exit(f"{title}: a manual page cannot contain this: {lines[0]}")
    return ".PP\n" + inline(joined)


def main():
    path, version = sys.argv[1:]
    with open(path, encoding="utf-8") as file:
        text = file.read()
    name = re.match(r"# (\S+)\n", text)[1]
    print(f'.TH {name.upper()} 1 "" "{name} {version}" "User Commands"')
    for part in re.split(r"\n{2,}", text.strip("\n")):
        roff = block(part, path)
        if roff:
            print(roff)


main()
