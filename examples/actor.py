# SPDX-License-Identifier: MIT
"""The programs that play in a story: what they say is shown with their names, kept, and waited for."""
import os
import signal
import subprocess
import sys
import threading
import time

PATIENCE = 150  # seconds; what has not been said by then will not be said


class StoryEnds(Exception):
    """The story cannot go on; the text says why."""


def show(text):
    """When nobody reads any more, the program ends as after SIGTERM, and cleans up."""
    try:
        sys.stdout.write(text)
        sys.stdout.flush()
    except BrokenPipeError:
        sys.stdout = open(os.devnull, "w", encoding="utf-8")
        os.kill(os.getpid(), signal.SIGTERM)


class Actor:
    """A program that is started, perhaps several times. Threads: one waits, another one of its own listens."""

    news = threading.Condition()  # also one line after the other on the terminal

    def __init__(self, name):
        self.name, self.said, self.process, self.listener = name, "", None, None

    def start(self, *command, **options):
        # It ends with this program, however this one ends.
        self.process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *map(str, command)], text=True, bufsize=1,
                                        encoding="utf-8", errors="replace", stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
        self.listener = threading.Thread(target=self.listen, args=(self.process.stdout,), daemon=True)
        self.listener.start()

    def listen(self, lines):
        for line in lines:
            with Actor.news:
                self.said += line
                if not line.startswith(("ready ", "READY ")):  # for this program only
                    show(f"{self.name:<10} | {line}")
                Actor.news.notify_all()

    def is_running(self):
        return self.listener.is_alive()

    def says(self, text, times=1):
        """Waits for it. False: it ends without."""
        end = time.monotonic() + PATIENCE
        with Actor.news:
            while self.said.count(text) < times and self.is_running() and time.monotonic() < end:
                Actor.news.wait(0.2)
            return self.said.count(text) >= times

    def await_saying(self, text):
        if not self.says(text):
            raise StoryEnds(f"{self.name} has not said: {text}")

    def do(self, command):
        self.process.stdin.write(command + "\n")

    def ended(self):
        """Its exit status, when all that it said has been shown."""
        self.listener.join()
        return self.process.wait()

    def end(self):
        """Also if it does not want to."""
        if self.process is None:
            return
        self.process.terminate()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.listener.join(5)  # what it has started may still hold its output
