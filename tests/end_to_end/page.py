# SPDX-License-Identifier: MIT
"""What a page shows, for the tests that try it."""
import re
from typing import NamedTuple


class Block(NamedTuple):
    """A fenced block. `name`: the name of the file that it shows, if a line "`NAME`:" precedes it."""
    name: str
    language: str
    text: str


def read_blocks(project, page):
    with open(f"{project}/{page}", encoding="utf-8") as file:
        found = re.findall(r"(?:^`(\S+)`:\n\n)?^```(\w+)\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
    return [Block(*fields) for fields in found]


def commands(text):
    """What a user types in a ```console block."""
    return re.findall(r"^\$ (.*)$", text, re.MULTILINE)


def steps(text):
    """Each command of a ```console block with what it prints; "..." stands for any lines."""
    return re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", text, re.MULTILINE)


def check_files(project, page, paths):
    """The page shows these files of the project, in this order and word for word, and no others."""
    shown = [block for block in read_blocks(project, page) if block.name]
    assert [block.name for block in shown] == [path.rsplit("/", 1)[1] for path in paths], [block.name for block in shown]
    for block, path in zip(shown, paths):
        with open(f"{project}/{path}", encoding="utf-8") as file:
            assert file.read() == block.text, f"{page} shows a {block.name} that differs from {path}"


def shape(text):
    """The text without the parts that differ from run to run."""
    text = re.sub(r"\d{4}-\d\d-\d\d[ T]\d\d:\d\d(:\d\d[.+:\d]*)?", "TIME", text)
    text = re.sub(r"\b\d[\d.]*(ns|us|ms|s)\b", "DURATION", text)
    text = re.sub(r"\b\d+ (cycles|overruns)", r"N \1", text)
    text = re.sub(r"\S*/\.local/state/", "STATE/", text)
    # Why a message waits is known two seconds after the start: before or after a page's next command.
    text = re.sub(r" +the device of port \d+ is not there$", "", text, flags=re.MULTILINE)
    return re.sub(r"/dev/pts/\d+", "/dev/pts/N", text)


def output_pattern(expected):
    """A pattern for the shape of a program's output; a line "..." stands for any number of lines.

    Where messages are kept is logged by a thread that waits for the disk, so that line may come at another place.
    """
    lines = [re.escape(line) + "\n" if line != "..." else "(?:.*\n)*?" for line in shape(expected).splitlines()]
    late = [line for line in lines if r"\ messages\ are\ kept\ in\ " in line]
    may_come = "".join(f"(?:{line})?" for line in late)
    must_come = "".join(f"(?=(?:.*\n)*?{line})" for line in late)
    return must_come + may_come + "".join(line + may_come for line in lines if line not in late)
