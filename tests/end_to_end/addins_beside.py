#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""addins_beside.py CORVANE LIBRARIES COUNTDOWN LACKING [EMULATOR...]: the command loads the add-ins that are beside
it, in an installation made for the test. One that needs a missing library is left out with one warning."""
import os
import re
import shutil
import subprocess
import tempfile
import sys

corvane, libraries, countdown, lacking, *emulator = sys.argv[1:]


def run(*words):
    return subprocess.run([*emulator, folder + "/bin/corvane", *words], capture_output=True, text=True, timeout=60,
                          check=False)


def types(*words):
    result = run("blocks", *words)
    assert result.returncode == 0, result
    return re.findall(r"^\w+$", result.stdout, re.MULTILINE), result.stderr


def link(source, name):
    path = f"{folder}/lib/{name}"
    if os.path.lexists(path):
        os.unlink(path)
    os.symlink(source, path)


with tempfile.TemporaryDirectory() as folder:
    os.mkdir(folder + "/bin")
    os.mkdir(folder + "/lib")
    shutil.copy(corvane, folder + "/bin/corvane")  # it looks for libraries where it is, not where a link leads
    for name in "corvane.so", "corvaneshare.so", "opcua.so":
        link(f"{libraries}/{name}", name)
    program = folder + "/program.lua"
    with open(program, "w", encoding="utf-8") as file:
        file.write("local block = COUNTDOWN and COUNTDOWN.new()\nfunction cycle() print(block ~= nil) end\n")

    result = run("run", program)
    assert result.returncode == 2 and "cannot find corvane_fb_lib.so" in result.stderr, result
    link(f"{libraries}/corvane_fb_lib.so", "corvane_fb_lib.so")
    five, warnings = types()
    assert five[0] == "SEND_SMS" and "COUNTDOWN" not in five and warnings == "", (five, warnings)

    # Add-ins with our names are loaded if they are there, and no others.
    for name in "corvane_standard.so", "corvane_sms.so", "corvane_mail.so", "corvane_modbus.so":
        link(countdown, name)
        assert types() == ([*five, "COUNTDOWN"], ""), (name, types())
        os.unlink(f"{folder}/lib/{name}")
    link(countdown, "somebody_elses.so")
    assert types() == (five, ""), types()

    # An add-in that needs a missing library: one line says what to install, and the others work.
    link(countdown, "corvane_standard.so")
    link(lacking, "corvane_mail.so")
    line = (rf"\S+ \S+ warning cannot load add-in {folder}/lib/corvane_mail.so: it needs libcorvane_absent.so.7, which "
            r"is not installed \(on Debian: apt install libcorvane-absent7\); its blocks are left out\n")
    found, warnings = types()
    assert found == [*five, "COUNTDOWN"] and re.fullmatch(line, warnings), (found, warnings)
    result = run("run", program, "--cycle", "0", "--cycles", "1", "--log-level", "warning")
    assert (result.returncode, result.stdout) == (0, "true\n") and re.fullmatch(line, result.stderr), result
    result = run("run", program, "--check")
    assert result.returncode == 0 and re.search(line, result.stderr), result
    with open(folder + "/lib/corvane_sms.so", "w", encoding="utf-8") as file:
        file.write("an upload that broke off")
    found, warnings = types()
    assert found == [*five, "COUNTDOWN"] and warnings.count("\n") == 2, (found, warnings)
    assert "corvane_sms.so: " in warnings and warnings.count("left out") == 2, warnings

    # --addin names others instead of all of these, and each of them must load.
    assert types("--addin", countdown) == (["COUNTDOWN"], ""), types("--addin", countdown)
    result = run("run", program, "--addin", lacking)
    assert result.returncode == 2 and "libcorvane_absent.so.7" in result.stderr, result
print("the add-ins beside the command are loaded")
