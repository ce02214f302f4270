#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""adding_a_block.py PROJECT BUILD CORVANE [CMAKE-OPTION...]: the page shows the files of the example, word for
word. What the build installs for the package corvane-dev is enough to build the example as the page says, and
CORVANE runs it and prints what the page says."""
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import check_files, read_blocks, steps

project, build, corvane, *options = sys.argv[1:]
PAGE = "docs/adding_a_block.md"
check_files(project, PAGE, "examples/counter_addin",
            ["counter_fb.h", "counter_fb.cpp", "counter_addin.cpp", "CMakeLists.txt", "counter.lua"])


def run(*words, **settings):
    result = subprocess.run(words, capture_output=True, text=True, timeout=100, check=False, **settings)
    assert result.returncode == 0, result
    return result.stdout


with tempfile.TemporaryDirectory() as folder:
    run("cmake", "--install", build, "--component", "dev", "--prefix", folder + "/usr")
    [session] = [block.text for block in read_blocks(project, PAGE) if block.language == "console"]
    for command, output in steps(session):
        words = [corvane if word == "corvane" else folder + word if word.startswith("/usr/") else word
                 for word in command.split()]
        if words[:2] == ["cmake", "-S"]:
            words += ["-DCMAKE_PREFIX_PATH=" + folder + "/usr", *options]
        printed = run(*words, cwd=folder)
        assert output in ("...\n", printed), (command, printed)
    # It was built from what was installed, and from nothing of the project.
    [read] = pathlib.Path(folder, "counter_addin/build").rglob("counter_fb.cpp.o.d")
    names = read.read_text(encoding="utf-8").split()
    assert any(name.startswith(folder + "/usr/include/corvane/block/") for name in names), names
    assert not any(name.startswith(project) for name in names), names
print("the counter is built from corvane-dev alone, and counts")
