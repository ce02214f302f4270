#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""watch.py CORVANE: looks at `corvane run --watch` through a terminal of 80 x 24 cells."""
import fcntl
import os
import pty
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

import pyte

from simulated_modem import SimulatedModem

corvane = sys.argv[1]
folder = tempfile.TemporaryDirectory()

PROGRAM = """
local alarm = SEND_SMS.new { Port = 1, Receiver = "+4912345", Message = "Насос 2: \\27[31mrot\\7 " }
local mail = SEND_EMAIL.new { Login = "plc", Password = "s3cret", Subject = ("long "):rep(30) }
local df = SysProcessCreateWithResult.new { Command = "echo from the shell" }
print("started")
function cycle()
  alarm.Port = plc.cycle
  df.Run = plc.cycle == 1
  df()
  if plc.cycle == 1 then io.write("\\27[2J", df.Output) end
  if alarm.Message == "never" then mail.Send = true end
end
"""


class Screen(pyte.Screen):
    """Of pyte, which lacks SU and SD of ECMA-48."""

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

    def __init__(self, program, *options, term="screen", lines=24):
        path = folder.name + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(program)
        self.screen = Screen(80, lines)
        self.stream = Stream(self.screen)
        self.raw = b""
        self.master, self.slave = pty.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", lines, 80, 0, 0))
        self.before = termios.tcgetattr(self.slave)
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", corvane, "run", path, "--watch", "--cycle", "10ms", *options], stdin=self.slave, stdout=self.slave,
            stderr=self.slave, start_new_session=True,
            env={"TERM": term, "PATH": os.environ["PATH"], "LANG": "C.UTF-8"})

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
        """Exit status; the terminal must be as it was before."""
        end = time.monotonic() + 60
        while self.process.poll() is None:
            assert time.monotonic() < end, "it does not end"
            self.take(0.05)
        self.take(0.1)
        assert termios.tcgetattr(self.slave) == self.before, "other settings than before"
        # The alternate screen is left, and the cursor shown, as often as not.
        assert self.raw.rfind(b"\x1b[?1049l") > self.raw.rfind(b"\x1b[?1049h"), self.raw[-300:]
        assert not self.screen.cursor.hidden
        os.close(self.master)
        os.close(self.slave)
        return self.process.returncode

    def press(self, keys):
        os.write(self.master, keys)


def test_shows_blocks_and_statistics():
    terminal = Terminal(PROGRAM)
    terminal.wait_for("Port         ", " cycles, 0 over", "from the shell")
    rows = terminal.screen.display
    assert rows[0].startswith(" corvane  " + folder.name), rows
    assert "cycle time min" in rows[2] and "started late p99" in rows[3], rows
    assert rows[4].rstrip() == "alarm: SEND_SMS", rows
    assert "Receiver     '+4912345'" in terminal.text() and "'Насос 2: rot? '" in terminal.text(), rows
    assert "Send         FALSE" in terminal.text(), rows
    assert "mail: SEND_EMAIL" in terminal.text(), rows
    assert any(row.rstrip() == " started" for row in rows), rows
    assert rows[23].startswith(" q: end   arrows, PgUp, PgDn: lines 1 to "), rows
    terminal.press(b"\x1bOB" * 40)
    terminal.wait_for("df: SysProcessCreateWithResult", "Command      'echo from the shell'")
    terminal.press(b"\x1bOA" * 8)
    terminal.wait_for("Password     ......", gone=["alarm: SEND_SMS"])
    assert "s3cret" not in terminal.raw.decode(errors="replace")
    assert "long long" in terminal.text() and "..." in terminal.text(), rows
    # Ctrl-Z must not stop the machine.
    assert termios.tcgetattr(terminal.slave)[6][termios.VSUSP] == b"\0"
    # Values are live.
    first = terminal.text()
    end = time.monotonic() + 60
    while terminal.text() == first:
        assert time.monotonic() < end, "nothing changes"
        terminal.take(0.05)
    terminal.press(b"q")
    status = terminal.wait_for_end()
    assert status == 0, (status, terminal.raw[-4000:].decode())
    after = terminal.raw[terminal.raw.rfind(b"\x1b[?1049l"):]
    assert b"from the shell" in after and b"cycle time min" in after, after


def test_shows_what_the_modems_do():
    reader = "local read = READ_SMS.new { Port = 1, Read = true } function cycle() read() end"
    with SimulatedModem(corvane) as modem:
        terminal = Terminal(reader, "--modem", f"1={modem.device}", "--modem", f"2={modem.device}-2")
        terminal.wait_for(" modem 1: AT+CMGL=0 -> OK in ", f" modem 2: {modem.device}-2 does not exist; is the modem")
        rows = terminal.screen.display
        assert rows[4].startswith(" modem 1: ") and rows[5].startswith(" modem 2: "), rows
        assert rows[6].rstrip() == "read: READ_SMS", rows
        modem.do("mute 60s")
        terminal.wait_for(" modem 1: AT+CMGF=0 not sent, the modem does not answer")
        terminal.press(b"q")
        assert terminal.wait_for_end() == 0


def test_leaves_the_terminal_on_every_end():
    terminal = Terminal("function cycle() if plc.cycle == 50 then error('no sensor') end end")
    assert terminal.wait_for_end() == 1
    assert b"no sensor" in terminal.raw[terminal.raw.rfind(b"\x1b[?1049l"):]

    terminal = Terminal("function cycle() end", "--cycles", "5")
    assert terminal.wait_for_end() == 0

    terminal = Terminal("x = = 1")
    assert terminal.wait_for_end() == 1

    terminal = Terminal("function cycle() end", "--addin", __file__)  # which is no library
    assert terminal.wait_for_end() == 2

    for ending in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        terminal = Terminal("function cycle() end")
        terminal.wait_for("cycle time min")
        terminal.process.send_signal(ending)
        assert terminal.wait_for_end() == 0


def test_leaves_the_terminal_when_a_signal_ends_the_process():
    stuck = "function cycle() if plc.cycle == 3 then print('stuck') while true do end end end"
    for ending in (signal.SIGTERM, signal.SIGINT, signal.SIGQUIT, signal.SIGABRT):
        terminal = Terminal(stuck)
        terminal.wait_for(" stuck")
        while terminal.process.poll() is None:  # SIGTERM and SIGINT end it at the second time
            terminal.process.send_signal(ending)
            terminal.take(0.05)
        assert terminal.wait_for_end() == -ending


def test_bears_a_small_terminal():
    terminal = Terminal(PROGRAM, lines=3)
    terminal.wait_for("q: end")
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_refuses_what_is_no_terminal():
    path = folder.name + "/program.lua"
    result = subprocess.run([corvane, "run", path, "--watch"], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout) == (2, ""), result
    assert result.stderr == "corvane: --watch needs a terminal as standard output\n", result
    master, slave = pty.openpty()
    result = subprocess.run([corvane, "run", path, "--watch"], stdout=slave, stderr=subprocess.PIPE, text=True,
                            env={"TERM": "no-such-terminal"}, check=False)
    assert result.returncode == 2, result
    assert result.stderr == "corvane: --watch cannot use a terminal of the type 'no-such-terminal' (TERM)\n", result
    os.close(master)
    os.close(slave)


for name, test in list(globals().items()):
    if name.startswith("test_"):
        test()
        print(name[5:].replace("_", " "))
