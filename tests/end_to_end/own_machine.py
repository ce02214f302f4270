#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A machine of a test's own: systemd as the first process in namespaces of its own, on an overlay of this
machine's root. dpkg, maintainer scripts, services and their restrictions are real; every change goes into a folder
in memory, and the processes end with the first one. The network is this machine's. Needs root and a version 2
control group.

own_machine.py PROJECT FOLDER COMMAND...: runs the command there, with the project (read-only) in /srv/project and
the empty FOLDER in /srv/shared; ends with its status.
"""
import os
import pathlib
import shlex
import shutil
import subprocess
import sys

UNIT = """[Unit]
Wants=systemd-journald.service
After=systemd-journald.service
SuccessAction=exit
FailureAction=exit
[Service]
Type=oneshot
Environment=HOME=/root LANG=C.UTF-8
WorkingDirectory=/tmp
ExecStart={command}
StandardOutput=append:/srv/shared/output
StandardError=append:/srv/shared/output
"""


def run(*words):
    subprocess.run(words, check=True)


def make_root(project, shared, folder):
    """An overlay of / below `folder`, in which nothing of the machine can be written to."""
    run("mount", "-t", "tmpfs", "tmpfs", folder)
    for name in ("upper", "work", "root"):
        os.mkdir(f"{folder}/{name}")
    root = folder + "/root"
    layers = f"lowerdir=/,upperdir={folder}/upper,workdir={folder}/work"
    run("mount", "-t", "overlay", "overlay", "-o", layers, root)
    for place, options in ("dev", "mode=755"), ("run", "mode=755"), ("tmp", "mode=1777"), ("srv", "mode=755"):
        run("mount", "-t", "tmpfs", "tmpfs", f"{root}/{place}", "-o", options)
    for name, major, minor in ("null", 1, 3), ("zero", 1, 5), ("full", 1, 7), ("random", 1, 8), ("urandom", 1, 9), ("tty", 5, 0):
        run("mknod", "-m", "666", f"{root}/dev/{name}", "c", str(major), str(minor))
    for name in ("dev/pts", "dev/shm", "srv/project", "srv/shared", "srv/changes"):
        os.mkdir(f"{root}/{name}")
    run("mount", "-t", "devpts", "devpts", root + "/dev/pts", "-o", "newinstance,ptmxmode=666,mode=620")
    os.symlink("pts/ptmx", root + "/dev/ptmx")
    os.symlink("/proc/self/fd", root + "/dev/fd")
    run("mount", "--bind", "-o", "ro", project, root + "/srv/project")
    run("mount", "--bind", shared, root + "/srv/shared")
    run("mount", "--bind", folder + "/upper", root + "/srv/changes")
    return root


def keep_only(root, command):
    """The command is all that systemd starts there, besides what it needs itself."""
    for place in "usr/lib/systemd/system", "etc/systemd/system":
        for name in os.listdir(f"{root}/{place}"):
            if name.endswith((".wants", ".requires")):
                shutil.rmtree(f"{root}/{place}/{name}")
    for name in "fstab", "machine-id":
        with open(f"{root}/etc/{name}", "w", encoding="utf-8"):
            pass
    # In container images it forbids that packages start services.
    pathlib.Path(root, "usr/sbin/policy-rc.d").unlink(missing_ok=True)
    with open(root + "/etc/systemd/system/the-test.service", "w", encoding="utf-8") as file:
        file.write(UNIT.format(command=shlex.join(command)))


def start_systemd(root):
    """Replaces this process, the first one of its namespace."""
    run("mount", "-t", "proc", "proc", root + "/proc")
    run("mount", "-t", "sysfs", "sysfs", root + "/sys", "-o", "ro")
    run("mount", "-t", "cgroup2", "cgroup2", root + "/sys/fs/cgroup")
    os.chroot(root)
    os.chdir("/")
    # In what it takes for a container, systemd does not touch the machine's clock, disks and modules.
    os.execve("/lib/systemd/systemd", ["systemd", "--unit=the-test.service", "--show-status=no", "--log-target=journal"],
              {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "container": "corvane-test"})


def remove_groups(folder):
    for path, _, _ in os.walk(folder, topdown=False):
        os.rmdir(path)


def main():
    if sys.argv[1] == "--start-systemd":
        start_systemd(sys.argv[2])
    project, shared, *command = sys.argv[1:]
    scratch = shared + "/scratch"
    os.mkdir(scratch)
    root = make_root(project, shared, scratch)
    keep_only(root, command)
    os.mkdir(shared + "/groups")
    run("mount", "-t", "cgroup2", "cgroup2", shared + "/groups")
    groups = f"{shared}/groups/corvane-test-{os.getpid()}"
    os.mkdir(groups)

    def join():
        with open(groups + "/cgroup.procs", "w", encoding="utf-8") as file:
            file.write("0")

    namespaces = ("unshare", "--mount", "--pid", "--fork", "--kill-child", "--uts", "--ipc", "--cgroup")
    try:
        status = subprocess.run([*namespaces, sys.executable, __file__, "--start-systemd", root], preexec_fn=join,
                                check=False).returncode
    finally:
        remove_groups(groups)
    sys.exit(status)


main()
