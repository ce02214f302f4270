# SPDX-License-Identifier: MIT
"""A pseudo-terminal with a command on it, and what its cells show."""
import fcntl
import os
import pty
import select
import struct
import subprocess
import termios
import time

import pyte


class Screen(pyte.Screen):
    """pyte's screen with SU and SD of ECMA-48, which pyte lacks."""

    def _scroll(self, count, row, step):
        kept, (top, bottom) = self.cursor.y, self.margins or (0, self.lines - 1)
        self.cursor.y = top if row == "top" else bottom
        for _ in range(count):
            step()
        self.cursor.y = kept

    def scroll_up(self, count=1):
        self._scroll(count, "bottom", self.index)

    def scroll_down(self, count=1):
        self._scroll(count, "top", self.reverse_index)


class Stream(pyte.ByteStream):
    csi = {**pyte.ByteStream.csi, "S": "scroll_up", "T": "scroll_down"}
    events = pyte.ByteStream.events | {"scroll_up", "scroll_down"}


class Terminal:
    """A program on a pseudo-terminal, and what it shows there."""

    def __init__(self, words, variables, term="screen", lines=24, columns=80, user=()):
        self.screen = Screen(columns, lines)
        self.stream = Stream(self.screen)
        self.raw = b""
        self.master, self.slave = pty.openpty()
        self.set_size(lines, columns)
        self.before = termios.tcgetattr(self.slave)
        # Its controlling terminal, so that keys such as Ctrl-C are signals; with their default effect, which a
        # shell in the background, or a service, may have taken from this process.
        self.process = subprocess.Popen(
            ["setsid", "--ctty", "setpriv", "--pdeathsig", "KILL", *user, "env", "--default-signal", *words],
            stdin=self.slave, stdout=self.slave, stderr=self.slave,
            env={"TERM": term, "PATH": os.environ["PATH"], "LANG": "C.UTF-8", **variables})

    def set_size(self, lines, columns):
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))

    def resize(self, lines, columns):
        """Resizes the way a terminal emulator does: first its own cells, then the kernel's record."""
        self.screen.resize(lines, columns)
        self.screen.erase_in_display(2)
        self.set_size(lines, columns)

    def take(self, seconds):
        while select.select([self.master], [], [], seconds)[0]:
            octets = os.read(self.master, 65536)
            self.raw += octets
            self.stream.feed(octets)
            seconds = 0

    def text(self):
        return "\n".join(self.screen.display)

    def wait_for(self, *parts, gone=()):
        end = time.monotonic() + 60
        while not all(part in self.text() for part in parts) or any(part in self.text() for part in gone):
            assert time.monotonic() < end, f"no {parts} in\n{self.text()}"
            assert self.process.poll() is None, f"ended\n{self.text()}"
            self.take(0.05)

    def wait_for_end(self):
        """Returns the exit status; the terminal must be as it was before."""
        end = time.monotonic() + 60
        while self.process.poll() is None:
            assert time.monotonic() < end, "it does not end"
            self.take(0.05)
        self.take(0.1)
        assert termios.tcgetattr(self.slave) == self.before, "the settings have changed"
        # In the end the alternate screen has been left, and the cursor is shown.
        assert self.raw.rfind(b"\x1b[?1049l") > self.raw.rfind(b"\x1b[?1049h"), self.raw[-300:]
        assert not self.screen.cursor.hidden
        os.close(self.master)
        os.close(self.slave)
        return self.process.returncode

    def press(self, keys):
        os.write(self.master, keys)

    def fill(self):
        """Fills the kernel's buffers, which nobody reads from now on: writing to them would wait."""
        end = os.open(os.ttyname(self.slave), os.O_WRONLY | os.O_NOCTTY | os.O_NONBLOCK)
        while select.select([], [end], [], 0.3)[1]:  # for the octets that the kernel moves in the background
            try:
                os.write(end, b"." * 4096)
            except BlockingIOError:
                pass
        os.close(end)

    def stop_output(self):
        """Stops the output, as Ctrl-S does."""
        self.press(b"\x13")
        end = time.monotonic() + 60
        while select.select([], [self.slave], [], 0)[1]:
            assert time.monotonic() < end, "it still accepts output"
            self.take(0.05)
