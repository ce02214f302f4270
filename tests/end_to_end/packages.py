#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""packages.py PROJECT: builds the Debian packages, installs, uses and removes them.

The root that they are installed into is an overlay of this machine's: dpkg, its maintainer scripts and
the programs really run, and every change goes into a folder in memory that is looked through at the
end. That needs root. The release build is reused, as ./run leaves it.
"""
import os
import pathlib
import subprocess
import sys
import tempfile

PROGRAM = "print(table.concat(plc.args, ' ')) function cycle() print(plc.cycle) end"

# An add-in of somebody else's, against the installed headers alone.
ADDIN_CMAKE = """cmake_minimum_required(VERSION 3.25)
project(addin LANGUAGES CXX)
find_package(corvane 0.1 REQUIRED)
add_library(addin MODULE addin.cpp)
target_compile_features(addin PRIVATE cxx_std_20)
target_link_libraries(addin PRIVATE corvane::contract)
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


def enter_own_root(folder):
    """Makes an overlay of / below `folder` and enters it; gives the folder with what changes."""
    run("mount", "-t", "tmpfs", "tmpfs", folder)
    for name in ("upper", "work", "root"):
        os.mkdir(f"{folder}/{name}")
    root = folder + "/root"
    layers = f"lowerdir=/,upperdir={folder}/upper,workdir={folder}/work"
    run("mount", "-t", "overlay", "overlay", "-o", layers, root)
    # Nothing of the machine is reachable for writing: neither its devices nor its /tmp.
    run("mount", "-t", "proc", "proc", root + "/proc")
    for name in ("dev", "tmp"):
        run("mount", "-t", "tmpfs", "tmpfs", f"{root}/{name}")
    for name, minor in (("null", 3), ("zero", 5), ("urandom", 9)):
        run("mknod", "-m", "666", f"{root}/dev/{name}", "c", "1", str(minor))
    # Seen from inside, too, after the root has changed.
    os.makedirs(root + "/tmp/upper")
    os.makedirs(root + "/tmp/packages")
    run("mount", "--bind", folder + "/upper", root + "/tmp/upper")
    return root


def check_use():
    assert "dialout" in run("id", "-nG", "corvane").split()
    as_user = ("setpriv", "--reuid=corvane", "--regid=corvane", "--init-groups")
    examples = "/usr/share/corvane/examples"
    output = run(*as_user, "corvane", "run", examples + "/disk_watch.lua", "--", "/", "0", "1")
    # The script runs in the background, so which of them is the last is open.
    assert "disk_alarm.sh: / is " in output and "Done: 1 measurements.\n" in output, output
    assert "SysProcessCreate\n" in run(*as_user, "corvane", "blocks")
    assert "corvane \\- run PLC" in run("zcat", "/usr/share/man/man1/corvane.1.gz")
    assert os.path.exists("/usr/share/bash-completion/completions/corvane")


def check_hardening():
    """The installed binaries are compiled for parsers that read what strangers send."""
    files = ["/usr/bin/corvane", *map(str, pathlib.Path("/usr/lib").rglob("corvane/*.so"))]
    assert len(files) == 5, files
    for file in files:
        headers = run("readelf", "--wide", "--file-header", "--program-headers", "--dynamic", file)
        assert "DYN (" in headers and "NOW" in headers and "GNU_RELRO" in headers, file
        assert " RWE " not in headers, file  # nothing is both writable and executable
        symbols = run("readelf", "--wide", "--dyn-syms", file)
        assert "__stack_chk_fail" in symbols or file.endswith("opcua.so"), file
    assert "_chk@" in run("readelf", "--wide", "--dyn-syms", "/usr/bin/corvane"), "not fortified"


def check_service():
    """What the unit starts; systemd itself does not run here."""
    unit = pathlib.Path("/usr/lib/systemd/system/corvane@.service").read_text(encoding="utf-8")
    command = unit.split("ExecStart=")[1].split("\n")[0].replace("%i", "pump").split()
    assert "\nUser=corvane\n" in unit
    assert "\nProtectSystem=strict\n" in unit and "ReadWritePaths" not in unit
    assert "\nStateDirectory=corvane/%i\n" in unit, "a program could write to the folders of others"
    pathlib.Path("/etc/corvane/pump.lua").write_text(PROGRAM, encoding="utf-8")
    config = "cycle = 1ms\ncycles = 2\nargs = from the file\n"
    pathlib.Path("/etc/corvane/pump.conf").write_text(config, encoding="utf-8")
    assert run(*command) == "from the file\n1\n2\n"
    os.remove("/etc/corvane/pump.conf")
    pathlib.Path("/etc/corvane/pump.lua").write_text("print('alone') plc.stop()", encoding="utf-8")
    assert run(*command) == "alone\n"


def check_headers(folder):
    pathlib.Path(folder, "CMakeLists.txt").write_text(ADDIN_CMAKE, encoding="utf-8")
    pathlib.Path(folder, "addin.cpp").write_text(ADDIN, encoding="utf-8")
    run("cmake", "-S", folder, "-B", folder + "/build", "-DCMAKE_BUILD_TYPE=Debug")
    run("cmake", "--build", folder + "/build")
    assert run("corvane", "blocks", "--addin", folder + "/build/libaddin.so") == "MINE\n"


def leftovers(upper):
    """Files that the packages have left, and accounts of theirs."""
    found = [str(path.relative_to(upper)) for path in pathlib.Path(upper).rglob("*corvane*")]
    for name in ("passwd", "group", "shadow", "gshadow"):
        found += [f"{name}: {line}" for line in open("/etc/" + name, encoding="utf-8") if "corvane" in line]
    return sorted(found)


def use_packages(folder, packages):
    """Runs in a mount namespace of its own, which ends with this process."""
    root = enter_own_root(folder)
    for package in packages:
        run("cp", package, root + "/tmp/packages")
    os.chroot(root)
    os.chdir("/")
    # Machines that keep manual pages out by their configuration keep these.
    install = ("dpkg", "--path-include=/usr/share/*", "-i")
    names = [f"/tmp/packages/{name}" for name in os.listdir("/tmp/packages")]
    run(*install, *names)
    check_use()
    check_hardening()
    check_service()
    os.mkdir("/tmp/addin")
    check_headers("/tmp/addin")
    run(*install, *names)  # an upgrade keeps everything
    check_use()
    run("dpkg", "--purge", "corvane", "corvane-dev")
    # Somebody's program stays, and nothing else.
    assert leftovers("/tmp/upper") == ["etc/corvane"], leftovers("/tmp/upper")
    assert os.listdir("/etc/corvane") == ["pump.lua"]


def main():
    project = sys.argv[1]
    if sys.argv[2:]:
        use_packages(sys.argv[2], sys.argv[3:])
        return
    as_root = []
    if os.geteuid() != 0:
        as_root = ["sudo", "-n"]
        if subprocess.run(["sudo", "-n", "true"], capture_output=True, check=False).returncode != 0:
            print("Skipped: the packages are installed by root, and sudo asks for a password")
            sys.exit(77)
    run(project + "/packaging/build_packages.sh")
    packages = sorted(str(path) for path in pathlib.Path(project, "build/release/packages").glob("*.deb"))
    assert len(packages) == 2, packages
    folder = tempfile.mkdtemp()
    try:
        namespace = (*as_root, "unshare", "--mount", "--propagation", "private")
        run(*namespace, sys.executable, __file__, project, folder, *packages)
    finally:
        os.rmdir(folder)  # empty: what was mounted went with the namespace
    print("The packages install, work and leave nothing behind")


main()
