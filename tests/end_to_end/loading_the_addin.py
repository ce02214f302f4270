#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""loading_the_addin.py PROJECT HOST RUNTIME LIBRARIES LUA_AS_C ADDINS [EMULATOR...]: the page shows the files of the
example word for word, and its host, which has its own corvane.so, runs our add-in as the page says, also
with Lua compiled as C. The other ADDINS (names, separated by commas) load into it, too, each by itself."""
import os
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import check_files, commands, read_blocks

project, host, runtime, libraries, lua_as_c, addins, *emulator = sys.argv[1:]
PAGE = "docs/loading_the_addin.md"
NAMES = ["CMakeLists.txt", "runtime.h", "runtime.cpp", "minimal_host.cpp", "blocks.lua"]

check_files(project, PAGE, ["examples/minimal_host/" + name for name in NAMES])
symbols, session = [block.text for block in read_blocks(project, PAGE) if block.language == "console"]
[list_symbols], [command] = commands(symbols), commands(session)
expected = session.split("\n", 1)[1]
assert expected.count("\n") == 4, expected

with tempfile.TemporaryDirectory() as folder:
    addins = [name + ".so" for name in addins.split(",")]
    assert "corvane_fb_lib.so" in addins, addins
    for name in "corvaneshare.so", "opcua.so", *addins:
        os.symlink(f"{libraries}/{name}", f"{folder}/{name}")
    for path in runtime, host, project + "/examples/minimal_host/blocks.lua":
        os.symlink(path, f"{folder}/{os.path.basename(path)}")
    result = subprocess.run(list_symbols, shell=True, cwd=folder, capture_output=True, text=True, check=True)
    assert "U RegisterExternalSTLib\n" in result.stdout and "@" not in result.stdout, result

    def run(command, lua):
        # The preloaded library replaces the linked one, and comes before the sanitizer's.
        preload = {"QEMU_SET_ENV": "LD_PRELOAD=" + lua} if emulator else {"LD_PRELOAD": lua}
        environment = {**os.environ, **preload, "ASAN_OPTIONS": "verify_asan_link_order=0"}
        result = subprocess.run(command.split(), cwd=folder, env=environment, capture_output=True, text=True,
                                timeout=60, check=False)
        # The shell that the blocks start inherits the setting, but it is this machine's, which cannot load the library.
        errors = [line for line in result.stderr.splitlines()
                  if not (emulator and line.startswith("ERROR: ld.so: object ") and "LD_PRELOAD" in line)]
        assert (result.returncode, errors) == (0, []), result
        return result.stdout

    for lua in "", lua_as_c:
        assert run(command, lua) == expected
    with open(folder + "/every_type.lua", "w", encoding="utf-8") as file:
        file.write("for name in pairs(TYPES.StandardFB) do blocks = { blocks, _G[name].new() } end\n"
                   "function cycle() print(type(blocks)) end\n")
    for addin in addins:
        for lua in "", lua_as_c:
            assert run(f"./minimal_host ./{addin} every_type.lua 1", lua) == "table\n", (addin, lua)
print("another runtime loads the add-ins")
