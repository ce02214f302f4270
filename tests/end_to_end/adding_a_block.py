#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""adding_a_block.py PROJECT BUILD CORVANE [CMAKE-OPTION...]: the page shows the files of the examples, word for
word. What the build installs for the package corvane-dev is enough to build the examples as the page says, and
CORVANE runs them and prints what the page says."""
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import check_files, read_blocks, steps

project, build, corvane, *options = sys.argv[1:]
PAGE = "docs/adding_a_block.md"
COUNTER, COUNTDOWN = "examples/counter_addin/", "examples/countdown_addin/"
check_files(project, PAGE, [COUNTER + "counter_fb.h", COUNTER + "counter_fb.cpp", COUNTER + "counter_addin.cpp",
                            COUNTER + "CMakeLists.txt", COUNTER + "counter.lua", COUNTDOWN + "countdown_fb.h",
                            COUNTDOWN + "countdown_fb.cpp", COUNTDOWN + "countdown.lua"])


def run(*words, **settings):
    result = subprocess.run(words, capture_output=True, text=True, timeout=100, check=False, **settings)
    assert result.returncode == 0, result
    return result.stdout


with tempfile.TemporaryDirectory() as folder:
    run("cmake", "--install", build, "--component", "dev", "--prefix", folder + "/usr")
    for session in [block.text for block in read_blocks(project, PAGE) if block.language == "console"]:
        for command, output in steps(session):
            words = [corvane if word == "corvane" else folder + word if word.startswith("/usr/") else word
                     for word in command.split()]
            if words[:2] == ["cmake", "-S"]:
                # A cross compiler looks for packages in its sysroot and in the root path only.
                words += ["-DCMAKE_PREFIX_PATH=" + folder + "/usr", "-DCMAKE_FIND_ROOT_PATH=" + folder, *options]
            printed = run(*words, cwd=folder)
            assert output in ("...\n", printed), (command, printed)
    # They were built from what was installed, and from nothing of the project.
    for name in "counter", "countdown":
        [read] = pathlib.Path(folder, name + "_addin/build").rglob(name + "_fb.cpp.o.d")
        files = read.read_text(encoding="utf-8").split()
        assert any(file.startswith(folder + "/usr/include/corvane/block/") for file in files), files
        ours = [file for file in files if file.startswith(project + "/") and not file.startswith(project + "/build/sysroot/")]
        assert not ours, ours
print("both examples are built from corvane-dev alone, and do their work")
