# SPDX-License-Identifier: MIT
"""A disk of one megabyte, for programs that are to meet a full one."""
import json
import os
import subprocess


def can_mount():
    return subprocess.run(["unshare", "-m", "sh", "-c", "mount -t tmpfs none /mnt"], check=False,
                          capture_output=True).returncode == 0


class TinyDisk:
    """In place of `folder`, for one program only: `command` is to be put before the program's."""

    def __init__(self, folder):
        os.mkdir(folder)
        self.folder, self.process = folder, None
        self.command = ["unshare", "-m", "sh", "-c", f'mount -t tmpfs -o size=1m none {folder} && exec "$@"', "sh"]

    def filling(self):
        return f"/proc/{self.process.pid}/root{self.folder}/filling"

    def fill(self, process):
        self.process = process
        with open(self.filling(), "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError:
                pass

    def make_room(self):
        os.remove(self.filling())

    def states(self, corvane):
        """Of all messages in the store there."""
        listed = subprocess.run(["nsenter", "-m", "-t", str(self.process.pid), os.path.abspath(corvane), "messages", "--store",
                                 self.folder + "/messages.db", "--json"], check=True, capture_output=True, text=True)
        return [json.loads(line)["state"] for line in listed.stdout.splitlines()]
