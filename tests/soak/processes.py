# SPDX-License-Identifier: MIT
"""A process whose lines are kept with their times, and functions that wait for an event."""
import re
import subprocess
import threading
import time

from accounts import Event

PATIENCE = 180  # seconds; anything that takes longer has failed


class Violated(Exception):
    """Something that is not allowed has happened; there is no need to go on."""


def await_state(what, is_so):
    end = time.monotonic() + PATIENCE
    while not is_so():
        if time.monotonic() > end:
            raise Violated(f"waited for {what} in vain")
        time.sleep(0.05)


class Process:
    """`output` and `log` hold what it has printed so far."""

    def __init__(self, *words, **options):
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, bufsize=1,
                                        errors="backslashreplace", **options)
        self.pid = self.process.pid
        self.output, self.log = [], []
        self.said = threading.Condition()
        self.saying = threading.Lock()
        streams = (self.process.stdout, self.output), (self.process.stderr, self.log)
        self.readers = [threading.Thread(target=self.follow, args=stream, daemon=True)
                        for stream in streams]
        for reader in self.readers:
            reader.start()

    def follow(self, stream, history):
        for line in stream:
            with self.said:
                history.append(Event(time.monotonic(), line.rstrip("\n")))
                self.said.notify_all()

    def say(self, line):
        with self.saying:
            self.process.stdin.write(line + "\n")

    def await_line(self, pattern, skip=0):
        """The first line that begins with the pattern, after the first `skip` lines."""
        end = time.monotonic() + PATIENCE
        with self.said:
            while True:
                for event in self.output[skip:]:
                    if re.match(pattern, event.line):
                        return event.line
                skip = len(self.output)
                left = end - time.monotonic()
                if left < 0 or self.process.poll() is not None:
                    log = [event.line for event in self.log[-20:]]
                    raise Violated(f"no {pattern!r} from {self.process.args}, log {log}")
                self.said.wait(min(left, 1))

    def end(self):
        """Waits until all output has been read; returns the exit status."""
        status = self.process.wait(PATIENCE)
        for reader in self.readers:
            reader.join(PATIENCE)
        return status
