# SPDX-License-Identifier: MIT
"""Memory, descriptors, threads and children of a process, as Linux reports them."""
import glob
import os
import re
import resource
import statistics
import time

import accounts
import excuses
from processes import Violated

UNDER_WAY = 8  # descriptors of pipes, files and a connection that are open only for a moment


def descriptors_of(pid):
    """What each descriptor refers to."""
    folder = f"/proc/{pid}/fd"
    found = {}
    for name in os.listdir(folder):
        try:
            found[int(name)] = os.readlink(f"{folder}/{name}")
        except FileNotFoundError:
            pass  # closed in the meantime
    return found


def without_attachments(descriptors):
    """The descriptors other than those of attached files."""
    return {number: what for number, what in descriptors.items()
            if not what.endswith("/attachment.bin")}


def threads_of(pid):
    return len(os.listdir(f"/proc/{pid}/task"))


def children_of(pid):
    """[(number, name, state)], see proc(5)."""
    children = []
    for path in glob.glob("/proc/[0-9]*/stat"):
        try:
            with open(path, encoding="utf-8", errors="replace") as file:
                match = re.match(r"(\d+) (\(.*\)) (\S) (\d+) ", file.read(), re.DOTALL)
        except (FileNotFoundError, ProcessLookupError):
            continue
        if int(match[4]) == pid:
            children.append((int(match[1]), match[2], match[3]))
    return children


def memory_of(pid):
    with open(f"/proc/{pid}/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


class Monitor:
    """Watches the program, and whether this machine keeps up."""

    def __init__(self, program, note, stopping):
        self.program, self.note, self.stopping = program, note, stopping
        self.descriptors = len(descriptors_of(program.pid))  # at the start
        self.threads = threads_of(program.pid)
        self.samples = []  # (time, bytes of memory)
        self.kept, self.seen = 0, 0

    def expected_descriptors(self):
        """Those of the start, and the connections that failed mails keep, as far as the program
        has reported them."""
        for event in self.program.output[self.seen:]:
            self.seen += 1
            if match := re.match(r"mail \d+ (\d+)$", event.line):
                self.kept += accounts.keeps_a_descriptor(int(match[1]))
        return self.descriptors + self.kept

    def look(self):
        self.samples.append((time.monotonic(), memory_of(self.program.pid)))
        count = len(without_attachments(descriptors_of(self.program.pid)))
        if count > self.expected_descriptors() + UNDER_WAY:
            raise Violated(f"{count} descriptors, {self.kept} of them kept by failed mails")
        # A SEND_EMAIL is created only when the previous one is gone, with its thread.
        if (count := threads_of(self.program.pid)) > self.threads:
            raise Violated(f"{count} threads, but {self.threads} at the start")

    def run(self):
        before = time.monotonic()
        while not self.stopping.wait(0.5):
            now = time.monotonic()
            if now - before > 1.5:
                self.note(excuses.STALLED, before, now)
            before = now
            self.look()

    def memory(self):
        """Bytes after the warm-up, and at the end."""
        start, end = self.samples[0][0], self.samples[-1][0]

        def middle(first, last):
            return statistics.median(size for moment, size in self.samples
                                     if first <= (moment - start) / (end - start) <= last)
        return middle(0.25, 0.4), middle(0.85, 1)
