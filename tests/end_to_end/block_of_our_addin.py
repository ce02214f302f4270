#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""block_of_our_addin.py PROJECT CORVANE: adds the counter of docs/adding_a_block.md to our add-in, in a copy of the
project, as the page says: first its own files and the add-in's table, then whatever a failing test names, until
the tests pass. (It builds the add-in and its test, which takes minutes if they are not in ccache's cache.)"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import read_blocks

project, corvane = sys.argv[1:]
FOLDER = "addins/corvane_fb_lib"
TEST_LIST = f"tests/{FOLDER}/corvane_fb_lib_test.cpp"
END_OF_TYPES = "};\n\nTEST_F(AddinEntry, InitAddinReturns0"  # of kTypes, whatever the last block is

TEST = f"""// SPDX-License-Identifier: MIT
#include "{FOLDER}/counter_fb.h"

#include "tests/{FOLDER}/block_test.h"

namespace {{

class Counter : public BlockTest {{}};

TEST_F(Counter, CountsRisingEdges) {{
  Run("fb = COUNTER.new{{PV = 2}} for i = 1, 4 do fb.CU = i % 2 == 1 fb() end");
  EXPECT_EQ(Eval("fb.CV"), "2");
  EXPECT_EQ(Eval("fb.Q"), "true");
}}

}}  // namespace
"""
PAGE = """# COUNTER

Counts rising edges.

| Variable | Type | Direction | Meaning |
|---|---|---|---|
| `CU` | BOOL | input | counts on a rising edge |
| `R` | BOOL | input | sets `CV` to 0 |
| `PV` | DINT | input | the count that `Q` waits for |
| `Q` | BOOL | output | `CV` has reached `PV` |
| `CV` | DINT | output | the count |
"""


def run(*words, **options):
    """Status and output of a command in the copy."""
    result = subprocess.run(words, cwd=copy, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                            **options)
    return result.returncode, result.stdout


def succeed(*words, **options):
    status, output = run(*words, **options)
    assert status == 0, (words, output)
    return output


def edit(name, before, after):
    text = (copy / name).read_text(encoding="utf-8")
    assert text.count(before) == 1, (name, before)
    (copy / name).write_text(text.replace(before, after), encoding="utf-8")


def needed(check, lists):
    """The check fails and names each of the lists; with their lines added, it passes."""
    status, output = check()
    assert status != 0, "it passes without " + ", ".join(lists)
    for name, (before, after) in lists.items():
        assert name in output, (name, output)
        edit(name, before, after)
    status, output = check()
    assert status == 0, output


def copy_project():
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=project,
                            capture_output=True, text=True, check=True).stdout
    for name in filter(None, listed.split("\0")):
        if os.path.isfile(f"{project}/{name}"):
            (copy / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(f"{project}/{name}", copy / name)
    succeed("git", "init", "-q")
    succeed("git", "add", "-A")
    succeed("git", "-c", "user.name=a", "-c", "user.email=a@b", "commit", "-qm", "project: begin")


def add_own_files():
    blocks = read_blocks(project, "docs/adding_a_block.md")
    for block in blocks:
        if block.name in ("counter_fb.h", "counter_fb.cpp"):
            text = block.text.replace('"counter_fb.h"', f'"{FOLDER}/counter_fb.h"')
            (copy / FOLDER / block.name).write_text(text, encoding="utf-8")
    (copy / f"tests/{FOLDER}/counter_fb_test.cpp").write_text(TEST, encoding="utf-8")
    (copy / "docs/blocks/counter.md").write_text(PAGE, encoding="utf-8")
    [include] = [block.text for block in blocks if block.text == f'#include "{FOLDER}/counter_fb.h"\n']
    [row] = [block.text for block in blocks if re.fullmatch(r" *BLOCK_TYPE\(.*\n", block.text)]
    first = f'#include "{FOLDER}/read_sms.h"\n'
    edit(FOLDER + "/block_types.h", first, include + first)
    succeed("clang-format", "-i", FOLDER + "/block_types.h")  # other blocks' headers may belong between the two
    edit(FOLDER + "/block_types.h", "};\n", row + "};\n")


def build_and_test():
    compile_options = ["-DCMAKE_BUILD_TYPE=", "-DCMAKE_CXX_FLAGS=-O0", "-DCMAKE_UNITY_BUILD=ON"]
    if shutil.which("ccache"):
        compile_options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    environment = {**os.environ, "CCACHE_BASEDIR": str(copy)}
    succeed("cmake", "-S", ".", "-B", "build", "-G", "Ninja", *compile_options)
    succeed("cmake", "--build", "build", "--target", "corvane_fb_lib", "corvane_fb_lib_test", env=environment)
    return run("build/tests/corvane_fb_lib_test", "--gtest_brief=1")


with tempfile.TemporaryDirectory() as folder:
    copy = pathlib.Path(folder, "project")
    copy.mkdir()
    copy_project()
    add_own_files()
    needed(lambda: run("tests/check_sources.sh"), {
        FOLDER + "/CMakeLists.txt": ("  driver_reply.cpp\n", "  counter_fb.cpp\n  driver_reply.cpp\n"),
        f"tests/{FOLDER}/CMakeLists.txt": ("  shell_fb_test.cpp\n", "  counter_fb_test.cpp\n  shell_fb_test.cpp\n")})
    needed(build_and_test, {
        TEST_LIST: (END_OF_TYPES, '    {"COUNTER", "CU:BOOL R:BOOL PV:DINT Q:BOOL CV:DINT"},\n' + END_OF_TYPES)})
    addin = copy / "build/lib/corvane_fb_lib.so"
    needed(lambda: run("tests/end_to_end/block_pages.py", ".", corvane, "--addin", addin), {
        "README.md": ("| [READ_SMS](", "| [COUNTER](docs/blocks/counter.md) | counts |\n| [READ_SMS]("),
        "docs/README.md": ("  - [READ_SMS](", "  - [COUNTER](blocks/counter.md): count\n  - [READ_SMS]("),
        "tests/end_to_end/CMakeLists.txt": ("  docs/blocks/read_sms.md\n",
                                            "  docs/blocks/counter.md\n  docs/blocks/read_sms.md\n")})
    succeed("tests/end_to_end/links.py", ".")
    changed = succeed("git", "status", "--porcelain").splitlines()
    print("\n".join(changed))
    assert len([line for line in changed if line.startswith(" M ")]) == 7, changed
