# SPDX-License-Identifier: MIT
"""What the pages about packages ask a user to type, and how the tests of the packages run it."""
import re
import subprocess
import sys

from page import commands, read_blocks


def run(*words, **options):
    result = subprocess.run(words, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(words)}: status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Pages:
    """What the pages ask a user to type."""

    def __init__(self, project):
        started, installing = (read_blocks(project, f"docs/{name}.md") for name in ("getting_started", "installing"))
        self.typed = [command.removeprefix("sudo ") for block in started + installing
                      if block.language == "console" for command in commands(block.text)]
        [self.addin_cmake] = [block.text for block in installing if block.language == "cmake"]
        with open(project + "/docs/installing.md", encoding="utf-8") as file:
            rows = re.findall(r"^\| .* \| (`[A-Z].*) \|$", file.read(), re.MULTILINE)
        self.unit_lines = [line for row in rows for line in re.findall(r"`(\w+=[^`]+)`", row)]
        with open(project + "/docs/corvane.md", encoding="utf-8") as file:
            self.examples = re.findall(r"^    (corvane .*)$", file.read(), re.MULTILINE)

    def command(self, begin):
        found = {command for command in self.typed if command.startswith(begin)}
        assert len(found) == 1, (begin, found)  # the pages agree
        return found.pop()


def shell(command, **options):
    return run("bash", "-ec", command, **options)
