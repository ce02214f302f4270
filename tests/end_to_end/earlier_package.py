# SPDX-License-Identifier: MIT
"""The package corvane 0.1.0, for tests of the upgrade: one package with every file, corvane_mail.so included, as it was
built before corvane-mail. The maintainer scripts, the service and its start script are those of 0.1.0 (the folder
earlier_package); the programs are today's, since building those of then would take minutes."""
import os
import pathlib
import re
import shutil
import subprocess

PARTS = pathlib.Path(__file__).parent / "earlier_package"


def make_earlier_package(runtime, mail, folder):
    """Makes it from the packages `runtime` and `mail`; returns its path."""
    tree = pathlib.Path(folder, "tree")
    subprocess.run(["dpkg-deb", "--raw-extract", runtime, tree], check=True)
    subprocess.run(["dpkg-deb", "--extract", mail, tree], check=True)
    shutil.rmtree(tree / "usr/share/doc/corvane-mail")
    os.remove(tree / "DEBIAN/triggers")
    os.remove(tree / "DEBIAN/md5sums")
    control = (tree / "DEBIAN/control").read_text(encoding="utf-8")
    control = re.sub(r"^Version: .*$", "Version: 0.1.0-1", control, flags=re.MULTILINE)
    (tree / "DEBIAN/control").write_text(re.sub(r"^Suggests: .*\n", "", control, flags=re.MULTILINE), encoding="utf-8")
    for name in ("postinst", "prerm", "postrm"):
        shutil.copy(PARTS / name, tree / "DEBIAN" / name)
    shutil.copy(PARTS / "service", tree / "usr/lib/corvane/service")
    shutil.copy(PARTS / "corvane@.service", tree / "usr/lib/systemd/system/corvane@.service")
    package = f"{folder}/corvane_0.1.0-1.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "--build", tree, package], check=True, capture_output=True)
    shutil.rmtree(tree)
    return package
