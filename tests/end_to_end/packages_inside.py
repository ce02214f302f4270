#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""packages_inside.py PACKAGE...: what packages.py does with the packages on a machine of its own (own_machine.py):
installs, uses, upgrades, removes and purges them, with the commands of the pages docs/getting_started.md,
docs/installing.md, docs/adding_a_block.md and docs/corvane.md."""
import os
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True
from earlier_package import make_earlier_package
from packages_pages import Pages, run, shell
from packages_service import check_removal, check_service, check_upgrade
from page import read_blocks, steps

PROJECT = "/srv/project"
INSTALL = ("dpkg", "--path-include=/usr/share/*", "--install")  # the manual pages, too

PROGRAM = "print(table.concat(plc.args, ' ')) function cycle() print(plc.cycle) end"

# Somebody else's add-in, built with only the installed headers. The page's lines follow.
ADDIN_CMAKE = """cmake_minimum_required(VERSION 3.25)
project(addin LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
"""
ADDIN = """
#include "corvane/modem_port_driver.h"
#include "corvane/st_library.h"
#include "share/base_lua_fb.h"
#include "share/file_time.h"
#include "share/log.h"
#include "share/lua_value.h"
#include "share/opcua_variant_hlp.h"
#include "share/tthread.h"
#include "share/utf16.h"
extern "C" int InitAddin() {
  return RegisterExternalSTLib("MINE", [](lua_State* L) {
    luaL_dostring(L, "TYPES.StandardFB.MINE = FBMetadata{Name = 'MINE', Hash = 1, Vars = {}}");
    return 1;
  });
}
extern "C" void DisposeAddin() {}
"""


def check_use(pages):
    assert "dialout" in run("id", "-nG", "corvane").split()
    as_user = ("setpriv", "--reuid=corvane", "--regid=corvane", "--init-groups")
    examples = "/usr/share/corvane/examples"
    output = run(*as_user, "corvane", "run", examples + "/disk_watch.lua", "--", "/", "0", "1")
    assert "disk_alarm.sh: / is " in output and "Done: 1 measurements.\n" in output, output
    assert "SysProcessCreate\n" in run(*as_user, "corvane", "blocks")
    [example] = [command for command in pages.examples if "disk_watch.lua" in command]
    assert "Done: 5 measurements.\n" in run(*as_user, *example.split())
    assert "corvane \\- run PLC" in run("zcat", "/usr/share/man/man1/corvane.1.gz")
    assert os.path.exists("/usr/share/bash-completion/completions/corvane")
    run(sys.executable, PROJECT + "/tests/end_to_end/links.py", "/usr/share/doc/corvane")


def check_hardening():
    """The installed binaries are compiled for parsers that read what strangers send."""
    files = ["/usr/bin/corvane", *map(str, pathlib.Path("/usr/lib").rglob("corvane/*.so"))]
    names = {os.path.basename(file) for file in files}
    assert names >= {"corvane", "opcua.so", "corvaneshare.so", "corvane.so", "corvane_fb_lib.so",
                     "corvane_mail.so"}, files
    for file in files:
        headers = run("readelf", "--wide", "--file-header", "--program-headers", "--dynamic", file)
        assert "DYN (" in headers and "NOW" in headers and "GNU_RELRO" in headers, file
        assert " RWE " not in headers, file  # no segment is both writable and executable
        symbols = run("readelf", "--wide", "--dyn-syms", file)
        assert "__stack_chk_fail" in symbols or file.endswith("opcua.so"), file
    [addin] = [file for file in files if "corvane_fb_lib" in file]
    assert "__assert_fail@" in run("readelf", "--wide", "--dyn-syms", addin), "its assertions are left out"
    assert "_chk@" in run("readelf", "--wide", "--dyn-syms", "/usr/bin/corvane"), "not fortified"


def blocks():
    """The types of blocks, and the warnings."""
    result = subprocess.run(["corvane", "blocks"], capture_output=True, text=True, check=True)
    return re.findall(r"^\w+$", result.stdout, re.MULTILINE), result.stderr


def check_without_mail():
    """The runtime needs no libcurl, and has no MAIL_OUTBOX."""
    assert "libcurl" not in run("dpkg-query", "-W", "-f", "${Depends}", "corvane")
    types, warnings = blocks()
    assert "SMS_OUTBOX" in types and "MAIL_OUTBOX" not in types and warnings == "", (types, warnings)


def check_mail():
    """corvane-mail brings MAIL_OUTBOX; without libcurl one line says what is missing, and the rest works."""
    types, warnings = blocks()
    assert "MAIL_OUTBOX" in types and warnings == "", (types, warnings)
    [library] = pathlib.Path("/usr/lib").rglob("libcurl.so.4")
    absent = library.rename(library.with_name("absent"))
    types, warnings = blocks()
    wanted = (r"\S+ \S+ warning cannot load add-in /usr/lib/\S*corvane_mail\.so: it needs libcurl\.so\.4, which "
              r"is not installed \(on Debian: apt install libcurl4\); its blocks are left out\n")
    assert "SMS_OUTBOX" in types and "MAIL_OUTBOX" not in types and re.fullmatch(wanted, warnings), (types, warnings)
    absent.rename(library)


def check_group(pages):
    """A user joins the group of the serial devices."""
    shell(pages.command("usermod"), env={**os.environ, "USER": "nobody"})
    assert "dialout" in run("id", "-nG", "nobody").split()


def verify_unit(unit):
    """systemd's own checks of the unit: it prints what it does not understand, and adds up how exposed it is."""
    instance = pathlib.Path("/tmp/corvane@pump.service")
    instance.write_text(unit, encoding="utf-8")
    checked = subprocess.run(["systemd-analyze", "verify", "--man=no", instance], capture_output=True, text=True, check=False)
    assert checked.returncode == 0 and not checked.stderr, checked.stderr
    security = run("systemd-analyze", "security", "--offline=true", "--threshold=25", "--no-pager", instance)
    print(security.splitlines()[-1])


def check_unit(pages):
    """The command that the unit starts, and what must not be missing in the unit."""
    unit = pathlib.Path("/usr/lib/systemd/system/corvane@.service").read_text(encoding="utf-8")
    command = unit.split("ExecStart=")[1].split("\n")[0].replace("%i", "pump").split()
    verify_unit(unit)
    assert "\nUser=corvane\n" in unit
    assert "\nStartLimitIntervalSec=600\nStartLimitBurst=5\n" in unit.split("[Service]")[0]
    assert "\nProtectSystem=strict\n" in unit and "ReadWritePaths" not in unit
    assert "\nStateDirectory=corvane/%i\n" in unit, "a program could write to the folders of others"
    assert "\nStateDirectoryMode=0750\n" in unit, "others could read what the runtime keeps"
    # The group corvane may watch the program: the socket has mode 0660, and its folder must let the group in.
    assert "\nRuntimeDirectory=corvane/%i\nRuntimeDirectoryMode=0750\n" in unit
    assert "\nGroup=corvane\n" in unit and "AF_UNIX" in unit.split("RestrictAddressFamilies=")[1].split("\n")[0]
    pathlib.Path("/etc/corvane/pump.lua").write_text(PROGRAM, encoding="utf-8")
    config = "cycle = 1ms\ncycles = 2\nargs = from the file\n"
    pathlib.Path("/etc/corvane/pump.conf").write_text(config, encoding="utf-8")
    assert run(*command) == "from the file\n1\n2\n"
    [example] = [command for command in pages.examples if "--check" in command]
    for check in pages.command("corvane run --check"), example:
        assert shell(check).endswith("/etc/corvane/pump.lua: ok\n")
    os.remove("/etc/corvane/pump.conf")
    pathlib.Path("/etc/corvane/pump.lua").write_text("print('alone') plc.stop()", encoding="utf-8")
    assert run(*command) == "alone\n"


def check_headers(pages, folder):
    pathlib.Path(folder, "CMakeLists.txt").write_text(ADDIN_CMAKE + pages.addin_cmake, encoding="utf-8")
    pathlib.Path(folder, "my_addin.cpp").write_text(ADDIN, encoding="utf-8")
    run("cmake", "-S", folder, "-B", folder + "/build", "-DCMAKE_BUILD_TYPE=Debug")
    run("cmake", "--build", folder + "/build")
    assert run("corvane", "blocks", "--addin", folder + "/build/libmy_addin.so") == "MINE\n"


def check_addin_examples():
    """The two examples, as the page docs/adding_a_block.md has them built from the package alone."""
    os.mkdir("/tmp/examples")
    sessions = [block.text for block in read_blocks("/usr/share/doc/corvane", "docs/adding_a_block.md")
                if block.language == "console" and "corvane-dev" in block.text]
    assert len(sessions) == 2, sessions
    for command, output in steps("".join(sessions)):
        assert output in ("...\n", shell(command, cwd="/tmp/examples")), command


def leftovers(upper):
    """Files and accounts that the packages have left."""
    found = [str(path.relative_to(upper)) for path in pathlib.Path(upper).rglob("*corvane*")]
    for name in ("passwd", "group", "shadow", "gshadow"):
        found += [f"{name}: {line}" for line in open("/etc/" + name, encoding="utf-8") if "corvane" in line]
    return sorted(found)


def check_fresh_install(pages, packages):
    """Installed on a machine that never had it, used, installed once more, and purged."""
    shell(pages.command("apt-get install ./build/release/packages/corvane_") + " -o Dpkg::Options::=--path-include=/usr/share/*", cwd=PROJECT)
    check_without_mail()
    run(*INSTALL, *packages)
    check_use(pages)
    check_mail()
    check_hardening()
    check_group(pages)
    check_unit(pages)
    check_service(pages.unit_lines)
    os.mkdir("/tmp/addin")
    check_headers(pages, "/tmp/addin")
    check_addin_examples()
    run(*INSTALL, *packages)  # the same version again keeps everything
    check_use(pages)
    run("systemctl", "enable", "corvane@pump")
    run("dpkg", "--purge", "corvane", "corvane-mail", "corvane-dev")
    # Somebody's program stays, and nothing else.
    assert leftovers("/srv/changes") == ["etc/corvane"], leftovers("/srv/changes")
    assert os.listdir("/etc/corvane") == ["pump.lua"]
    os.remove("/etc/corvane/pump.lua")


def check_mail_alone(mail):
    """corvane-mail does not take its add-in away from 0.1.0, which goes on."""
    refused = subprocess.run([*INSTALL, mail], capture_output=True, text=True, check=False)
    assert refused.returncode != 0 and "breaks corvane" in refused.stderr, refused
    run("dpkg", "--remove", "corvane-mail")


def check_upgrade_and_removal(pages, packages):
    [runtime] = [package for package in packages if "/corvane_" in package]
    [mail] = [package for package in packages if "/corvane-mail_" in package]
    earlier = make_earlier_package(runtime, mail, "/tmp")
    upgrade = pages.command("apt-get install ./build/release/packages/corvane*")

    def install_earlier():
        run(*INSTALL, earlier)
        check_mail_alone(mail)

    had = check_upgrade(install_earlier, lambda: run(*INSTALL, runtime), lambda: run(*INSTALL, mail))
    check_removal(had, lambda: run("dpkg", "--remove", "corvane", "corvane-mail"), lambda: shell(upgrade, cwd=PROJECT),
                  lambda: run("dpkg", "--purge", "corvane", "corvane-mail", "corvane-dev"))
    os.remove(earlier)
    assert leftovers("/srv/changes") == ["etc/corvane"], leftovers("/srv/changes")


def main():
    pages = Pages(PROJECT)
    check_fresh_install(pages, sys.argv[1:])
    check_upgrade_and_removal(pages, sys.argv[1:])


main()
