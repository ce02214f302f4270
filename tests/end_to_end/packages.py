#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""packages.py PROJECT: builds the Debian packages, installs, uses and removes them, with the commands of the
pages docs/getting_started.md, docs/installing.md, docs/adding_a_block.md and docs/corvane.md (except dmesg
and systemctl, which need their own kernel and init system).

They are installed into an overlay of this machine's root: dpkg, its maintainer scripts and the programs
really run, and every change goes into a folder in memory that is searched at the end. That needs root.
The release build is reused, as ./run leaves it.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from page import commands, read_blocks, steps

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


def run(*words, **options):
    result = subprocess.run(words, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(words)}: status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Pages:
    """What the pages ask a user to type; read before the root changes."""

    def __init__(self, project):
        started, installing = (read_blocks(project, f"docs/{name}.md") for name in ("getting_started", "installing"))
        self.typed = [command.removeprefix("sudo ") for block in started + installing
                      if block.language == "console" for command in commands(block.text)]
        [self.addin_cmake] = [block.text for block in installing if block.language == "cmake"]
        with open(project + "/docs/corvane.md", encoding="utf-8") as file:
            self.examples = re.findall(r"^    (corvane .*)$", file.read(), re.MULTILINE)

    def command(self, begin):
        found = {command for command in self.typed if command.startswith(begin)}
        assert len(found) == 1, (begin, found)  # the pages agree
        return found.pop()


def shell(command, **options):
    return run("bash", "-ec", command, **options)


def enter_own_root(folder):
    """Makes an overlay of / below `folder`; returns its root."""
    run("mount", "-t", "tmpfs", "tmpfs", folder)
    for name in ("upper", "work", "root"):
        os.mkdir(f"{folder}/{name}")
    root = folder + "/root"
    layers = f"lowerdir=/,upperdir={folder}/upper,workdir={folder}/work"
    run("mount", "-t", "overlay", "overlay", "-o", layers, root)
    # Nothing of the machine can be written to: neither its devices nor its /tmp.
    run("mount", "-t", "proc", "proc", root + "/proc")
    for name in ("dev", "tmp"):
        run("mount", "-t", "tmpfs", "tmpfs", f"{root}/{name}")
    for name, minor in (("null", 3), ("zero", 5), ("urandom", 9)):
        run("mknod", "-m", "666", f"{root}/dev/{name}", "c", "1", str(minor))
    # Also visible from inside, after the root has changed.
    os.makedirs(root + "/tmp/upper")
    os.makedirs(root + "/tmp/build/release/packages")
    run("mount", "--bind", folder + "/upper", root + "/tmp/upper")
    return root


def check_use(pages):
    assert "dialout" in run("id", "-nG", "corvane").split()
    as_user = ("setpriv", "--reuid=corvane", "--regid=corvane", "--init-groups")
    examples = "/usr/share/corvane/examples"
    output = run(*as_user, "corvane", "run", examples + "/disk_watch.lua", "--", "/", "0", "1")
    # The script runs in the background, so either may come last.
    assert "disk_alarm.sh: / is " in output and "Done: 1 measurements.\n" in output, output
    assert "SysProcessCreate\n" in run(*as_user, "corvane", "blocks")
    [example] = [command for command in pages.examples if "disk_watch.lua" in command]
    assert "Done: 5 measurements.\n" in run(*as_user, *example.split())
    assert "corvane \\- run PLC" in run("zcat", "/usr/share/man/man1/corvane.1.gz")
    assert os.path.exists("/usr/share/bash-completion/completions/corvane")
    run(sys.executable, "links.py", "/usr/share/doc/corvane")


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
    with tempfile.TemporaryDirectory() as folder:
        instance = pathlib.Path(folder) / "corvane@pump.service"
        instance.write_text(unit, encoding="utf-8")
        checked = subprocess.run(["systemd-analyze", "verify", "--man=no", str(instance)], capture_output=True,
                                 text=True, check=False)
        assert checked.returncode == 0 and not checked.stderr, checked.stderr
        print(run("systemd-analyze", "security", "--offline=true", "--threshold=25", "--no-pager", str(instance))
              .splitlines()[-1])


def check_service(pages):
    """Runs what the unit starts; systemd itself does not run here."""
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


def use_packages(project, folder, packages):
    """Runs in a separate mount namespace, which ends with this process."""
    pages = Pages(project)
    root = enter_own_root(folder)
    for package in packages:
        run("cp", package, root + "/tmp/build/release/packages")
    run("cp", os.path.dirname(__file__) + "/links.py", root + "/tmp")
    os.chroot(root)
    os.chdir("/tmp")
    # With the manual pages, even where the configuration of the machine excludes them.
    shell(pages.command("apt-get install ./") + " -o Dpkg::Options::=--path-include=/usr/share/*")
    install = ("dpkg", "--path-include=/usr/share/*", "-i")
    names = [str(path) for path in pathlib.Path("build/release/packages").iterdir()]
    check_without_mail()
    run(*install, *names)
    check_use(pages)
    check_mail()
    check_hardening()
    check_group(pages)
    check_service(pages)
    os.mkdir("/tmp/addin")
    check_headers(pages, "/tmp/addin")
    check_addin_examples()
    run(*install, *names)  # an upgrade keeps everything
    check_use(pages)
    shell("mkdir -p /etc/systemd/system/multi-user.target.wants; cd /etc/systemd/system/multi-user.target.wants;"
          "ln -s /usr/lib/systemd/system/corvane@.service corvane@pump.service")  # as systemctl enable does
    run("dpkg", "--purge", "corvane", "corvane-mail", "corvane-dev")
    # Somebody's program stays, and nothing else.
    assert leftovers("/tmp/upper") == ["etc/corvane"], leftovers("/tmp/upper")
    assert os.listdir("/etc/corvane") == ["pump.lua"]


def check_build(project, pages):
    """What a user does with the clone."""
    assert "Done: 3 messages answered.\n" in shell(pages.command("./run"), cwd=project)
    shell(pages.command("packaging/"), cwd=project)
    with tempfile.TemporaryDirectory() as folder:
        install = shell(pages.command("cmake --install"), cwd=project, env={**os.environ, "DESTDIR": folder})
        assert "SysProcessCreate\n" in run(folder + "/usr/local/bin/corvane", "blocks"), install


def main():
    project = sys.argv[1]
    if sys.argv[2:]:
        use_packages(project, sys.argv[2], sys.argv[3:])
        return
    as_root = []
    if os.geteuid() != 0:
        as_root = ["sudo", "-n"]
        if subprocess.run(["sudo", "-n", "true"], capture_output=True, check=False).returncode != 0:
            print("Skipped: only root can install the packages, and sudo asks for a password")
            sys.exit(77)
    check_build(project, Pages(project))
    packages = sorted(str(path) for path in pathlib.Path(project, "build/release/packages").glob("*.deb"))
    assert len(packages) == 3, packages
    folder = tempfile.mkdtemp()
    try:
        namespace = (*as_root, "unshare", "--mount", "--propagation", "private")
        run(*namespace, sys.executable, __file__, project, folder, *packages)
    finally:
        os.rmdir(folder)  # empty: the mounts are gone with the namespace
    print("The packages install, work and leave nothing behind")


main()
