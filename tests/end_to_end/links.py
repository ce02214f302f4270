#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""links.py FOLDER: every link in the pages leads to an existing file, and heading if it names one; docs/README.md
lists every page. FOLDER is the project, or the folder where its pages are installed."""
import os
import pathlib
import re
import sys

project = pathlib.Path(sys.argv[1])
pages = [*sorted(project.glob("*.md")), *sorted(project.glob("docs/**/*.md"))]


def without_code(text):
    return re.sub(r"^```.*?^```$|`[^`\n]*`", lambda code: code[0].strip("`") if code[0][1] != "`" else "", text,
                  flags=re.MULTILINE | re.DOTALL)


def anchors(page):
    """The anchors of the headings, as forges make them: lower case, no punctuation, hyphens for spaces."""
    headings = re.findall(r"^#+ (.*)$", without_code(page.read_text(encoding="utf-8")), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def dead_links(page):
    for target in re.findall(r"\]\(([^)\s]+)\)", without_code(page.read_text(encoding="utf-8"))):
        if target.startswith(("http:", "https:", "mailto:")):
            continue
        name, _, anchor = target.partition("#")
        file = pathlib.Path(os.path.normpath(page.parent / name)) if name else page
        if not file.exists():
            yield f"{page}: {target}: no such file"
        elif anchor and anchor not in anchors(file):
            yield f"{page}: {target}: no such heading"


failures = [failure for page in pages for failure in dead_links(page)]
index = (project / "docs/README.md").read_text(encoding="utf-8")
for listed in project.glob("docs/**/*.md"):
    name = str(listed.relative_to(project / "docs"))
    if name != "README.md" and f"({name})" not in index:
        failures.append(f"docs/README.md does not list {name}")
print("\n".join(failures) or f"{len(pages)} pages: every link leads somewhere")
sys.exit(1 if failures else 0)
