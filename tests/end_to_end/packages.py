#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""packages.py PROJECT: builds the Debian packages, installs, uses, upgrades and removes them, with the commands of the
pages (packages_inside.py says which), on a machine of its own with systemd (own_machine.py). That needs root.
./run then uses their release build, unless it has made one of its own before.
"""
import os
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from packages_pages import Pages, run, shell

HERE = os.path.dirname(os.path.abspath(__file__))


def check_build(project, pages):
    """What a user does with the clone."""
    shell(pages.command("packaging/"), cwd=project)
    assert "Done: 3 messages answered.\n" in shell(pages.command("./run"), cwd=project)
    with tempfile.TemporaryDirectory() as folder:
        install = shell(pages.command("cmake --install"), cwd=project, env={**os.environ, "DESTDIR": folder})
        assert "SysProcessCreate\n" in run(folder + "/usr/local/bin/corvane", "blocks"), install


def main():
    [project] = map(os.path.abspath, sys.argv[1:])
    as_root = []
    if os.geteuid() != 0:
        as_root = ["sudo", "-n"]
        if subprocess.run(["sudo", "-n", "true"], capture_output=True, check=False).returncode != 0:
            print("Skipped: only root can install the packages, and sudo asks for a password")
            sys.exit(77)
    check_build(project, Pages(project))
    packages = sorted(path.name for path in pathlib.Path(project, "build/release/packages").glob("*.deb"))
    assert len(packages) == 3, packages
    inside = [f"/srv/project/build/release/packages/{name}" for name in packages]
    folder = tempfile.mkdtemp()
    try:
        namespace = (*as_root, "unshare", "--mount", "--propagation", "private", sys.executable, HERE + "/own_machine.py")
        status = subprocess.run([*namespace, project, folder, "/usr/bin/python3", "-u",
                                 "/srv/project/tests/end_to_end/packages_inside.py", *inside], check=False).returncode
        output = pathlib.Path(folder, "output")
        print(output.read_text(encoding="utf-8") if output.exists() else "the machine has not started")
    finally:
        run(*as_root, "rm", "-rf", folder)  # the mounts are gone with the namespace
    assert status == 0, status
    print("The packages install, work, upgrade, and leave nothing behind")


main()
