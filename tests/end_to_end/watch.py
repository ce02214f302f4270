#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""watch.py CORVANE [TEST...]: looks at `corvane run --watch` through a terminal, usually of 80 x 24 cells."""
import os
import pty
import signal
import subprocess
import sys
import tempfile
import termios
import time

from simulated_modem import SimulatedModem
from terminal import Terminal

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


class WatchedProgram(Terminal):
    """`corvane run --watch`."""

    def __init__(self, program, *options, **terminal):
        os.chmod(folder.name, 0o755)  # for any user
        path = folder.name + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(program)
        super().__init__([corvane, "run", path, "--watch", "--cycle", "10ms", *options], {}, **terminal)


def test_shows_blocks_and_statistics():
    terminal = WatchedProgram(PROGRAM)
    terminal.wait_for("Port         ", " cycles, ", "from the shell", " q: end  ?: keys  lines 1 to ")
    rows = terminal.screen.display
    assert rows[0].startswith(" corvane  " + folder.name), rows
    assert "cycle time min" in rows[2] and "started late p99" in rows[3], rows
    assert rows[4].rstrip() == "alarm: SEND_SMS", rows
    assert "Receiver     '+4912345'" in terminal.text() and "'Насос 2: rot? '" in terminal.text(), rows
    assert "Send         FALSE" in terminal.text(), rows
    assert "mail: SEND_EMAIL" in terminal.text(), rows
    assert any(row.rstrip() == " started" for row in rows), rows
    assert rows[23].startswith(" q: end  ?: keys  lines 1 to "), rows
    assert "State        0 waiting for the port" in terminal.text(), rows
    terminal.press(b"\x1bOB" * 40)
    terminal.wait_for("df: SysProcessCreateWithResult", "Command      'echo from the shell'")
    terminal.press(b"\x1bOA" * 2)  # not up to the first line, whose name must stay away
    terminal.wait_for("Password     ......", gone=["alarm: SEND_SMS"])
    assert "s3cret" not in terminal.raw.decode(errors="replace")
    assert "long long" in terminal.text() and "..." in terminal.text(), rows
    terminal.press(b"\x1a")  # Ctrl-Z must not stop the machine
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


def test_hides_the_token_of_a_mail_account():
    terminal = WatchedProgram("""local mail = MAIL_OUTBOX.new { Server = "localhost", User = "plc", Token = "t0ken" }
                           function cycle() end""", lines=40)
    terminal.wait_for("User         'plc'", "Token        ......", "Password     ''")
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0
    assert b"t0ken" not in terminal.raw


def test_shows_what_the_modems_do():
    reader = "local read = READ_SMS.new { Port = 1, Read = true } function cycle() read() end"
    with SimulatedModem(corvane) as modem:
        terminal = WatchedProgram(reader, "--modem", f"1={modem.device}", "--modem", f"2={modem.device}-2")
        terminal.wait_for(" modem 1: AT+CMGL=0 -> OK in ", f" modem 2: {modem.device}-2 does not exist; is the modem")
        rows = terminal.screen.display
        assert rows[4].startswith(" modem 1: ") and rows[5].startswith(" modem 2: "), rows
        assert rows[6].rstrip() == "read: READ_SMS", rows
        modem.do("mute 60s")
        terminal.wait_for(" modem 1: AT+CMGF=0 not sent, the modem does not answer")
        terminal.press(b"q")
        assert terminal.wait_for_end() == 0


def test_leaves_the_terminal_on_every_end():
    terminal = WatchedProgram("function cycle() if plc.cycle == 50 then error('no sensor') end end")
    assert terminal.wait_for_end() == 1
    assert b"no sensor" in terminal.raw[terminal.raw.rfind(b"\x1b[?1049l"):]

    terminal = WatchedProgram("function cycle() end", "--cycles", "5")
    assert terminal.wait_for_end() == 0

    terminal = WatchedProgram("x = = 1")
    assert terminal.wait_for_end() == 2

    terminal = WatchedProgram("function cycle() end", "--addin", __file__)  # which is not a library
    assert terminal.wait_for_end() == 2

    for ending in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        terminal = WatchedProgram("function cycle() end")
        terminal.wait_for("cycle time min")
        terminal.process.send_signal(ending)
        assert terminal.wait_for_end() == 0


def test_leaves_the_terminal_when_a_signal_ends_the_process():
    stuck = "function cycle() if plc.cycle == 3 then print('stuck') while true do end end end"
    for ending in (signal.SIGTERM, signal.SIGINT, signal.SIGQUIT, signal.SIGABRT):
        terminal = WatchedProgram(stuck)
        terminal.wait_for(" stuck")
        end = time.monotonic() + 60
        while terminal.process.poll() is None:  # the second SIGTERM or SIGINT ends it
            assert time.monotonic() < end, f"{ending} does not end it"
            terminal.process.send_signal(ending)
            terminal.take(0.05)
        assert terminal.wait_for_end() == -ending


# What terminals send: in the cursor keys' own mode, out of it, and as a VT220.
KEYS = {"page down": [b"\x1b[6~"], "page up": [b"\x1b[5~"], "down": [b"\x1bOB", b"\x1b[B"], "up": [b"\x1bOA", b"\x1b[A"],
        "end": [b"\x1bOF", b"\x1b[F", b"\x1b[4~"], "home": [b"\x1bOH", b"\x1b[H", b"\x1b[1~"]}
# On a busy machine, overruns would fill lines of the page.
QUIET = ["--log-level", "error"]
MANY = """
blocks = {}
for i = 1, 500 do blocks[i] = SysProcessCreate.new { Command = "true" } end
count = SysProcessCreateWithResult.new { Command = "true" }
function cycle() count.Args = "cycle " .. plc.cycle end
"""


def test_moves_through_many_blocks_with_every_key():
    terminal = WatchedProgram(MANY, *QUIET)
    terminal.wait_for("blocks[1]: SysProcessCreate", "lines 1 to 19 of ")
    total = int(terminal.screen.display[23].split(" of ")[1])
    assert total >= 1000, total
    for variant in range(3):
        def press(name):
            terminal.press(KEYS[name][variant % len(KEYS[name])])
        press("page down")
        terminal.wait_for("lines 20 to 38 of ")
        press("down")
        terminal.wait_for("lines 21 to 39 of ")
        press("page up")
        terminal.wait_for("lines 2 to 20 of ")
        press("up")
        terminal.wait_for("lines 1 to 19 of ")
        press("end")
        terminal.wait_for("count: SysProcessCreateWithResult", f"lines {total - 18} to {total} of ")
        press("home")
        terminal.wait_for("blocks[1]: SysProcessCreate", "lines 1 to 19 of ")
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_filters_lists_its_keys_and_pauses():
    terminal = WatchedProgram(MANY, *QUIET)
    terminal.wait_for("blocks[1]: ")
    terminal.press(b"/cOunt")
    terminal.wait_for(" /cOunt_  Enter: keep  Esc: show all", "count: SysProcessCreateWithResult", gone=["blocks[1]: "])
    terminal.press(b"\r")
    terminal.wait_for(" q: end  ?: keys  /cOunt", "'cycle ")
    terminal.press(b"/\x7f\x7f\x7f\x7f\x7foutput\r")  # the name of a variable
    terminal.wait_for("/output", "count: SysProcessCreateWithResult", "  Output       ''", gone=["Args  ", "blocks["])
    terminal.press(b"\x1b")
    terminal.wait_for("blocks[1]: ", gone=["/output"])

    terminal.press(b"?")
    terminal.wait_for("PgUp, PgDn  one page", "?: back", gone=["blocks[1]: "])
    terminal.press(b"?")
    terminal.wait_for("blocks[1]: ")
    terminal.press(b"?")
    terminal.wait_for("?: back")
    terminal.press(b"\x1b")
    terminal.wait_for("blocks[1]: ")

    terminal.press(b"\x1b[F" b"p")
    terminal.wait_for(" corvane  paused  ", "'cycle ")
    paused = terminal.text()
    terminal.press(b"\x1b[H")  # the display still follows the keys
    terminal.wait_for("blocks[1]: ", "paused")
    terminal.press(b"\x1b[F")
    terminal.wait_for("'cycle ")
    assert terminal.text() == paused, f"{terminal.text()}\nand before\n{paused}"
    terminal.press(b"p")
    terminal.wait_for("'cycle ", gone=["paused"])
    assert terminal.text() != paused, "the program has not gone on"
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_marks_what_has_changed_lately():
    terminal = WatchedProgram("""
        fb = SEND_SMS.new { Port = 7 }
        function cycle()
          if plc.cycle % 500 == 100 then fb.Message = "cycle " .. plc.cycle end
        end""")
    terminal.wait_for("* Message      'cycle 100'", "  Port         7")
    terminal.wait_for("  Message      'cycle 100'")  # after two seconds
    terminal.wait_for("* Message      'cycle 600'")
    assert "* Port" not in terminal.text()
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_fits_every_size_and_follows_a_resize():
    terminal = WatchedProgram(PROGRAM, lines=10, columns=40)
    terminal.wait_for("alarm: SEND_SMS", " cycles, ", "q: end", "Output")
    for lines, columns in ((5, 20), (60, 200), (24, 80), (10, 40), (3, 80)):
        terminal.resize(lines, columns)
        block = [] if lines == 3 else ["alarm: SEND_SMS"]
        terminal.wait_for(" corvane ", " q: end", *block)
        assert terminal.screen.display[-1].startswith(" q: end"), terminal.text()
        assert terminal.screen.display[0].startswith(" corvane "), terminal.text()
    terminal.resize(60, 200)
    # All blocks at once, and the variables in four columns.
    terminal.wait_for("df: SysProcessCreateWithResult", "Password     ......")
    assert any(all(part in row for part in ("Port  ", "Send  ", "Receiver  ")) for row in terminal.screen.display)
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_wide_characters_do_not_break_rows():
    text = "水位 e\u0301\u0323 😀 ｱ"
    terminal = WatchedProgram(f"""
        local pumps = {{ ["水\\27[2J\\n"] = SEND_SMS.new {{ Receiver = "{text}", Message = "short" }} }}
        long = SEND_SMS.new {{ Message = ("水"):rep(20000) }}
        odd = SEND_SMS.new {{ Message = "a\\200\\255\\0\\7\\226\\128\\174b" }}
        function cycle() return pumps end""", lines=40)
    terminal.wait_for("long: SEND_SMS", "odd: SEND_SMS", "q: end")
    rows = terminal.screen.display
    assert any(row.startswith("pumps.水?: SEND_SMS") for row in rows), terminal.text()
    [row] = [i for i in range(40) if "Receiver     '水" in rows[i]]
    cells = terminal.screen.buffer[row]
    assert "".join(cells[i].data for i in range(40, 62)) == "  Message      'short'", terminal.text()
    assert "".join(cells[i].data for i in range(15, 40)).rstrip() == f"'{text}'".replace("e\u0301\u0323", "ẹ́"), terminal.text()
    [row] = [i for i in range(40) if "Message      '水水" in rows[i]]
    cells = terminal.screen.buffer[row]
    assert "".join(cells[i].data for i in range(76, 80)) in ("...", "... "), terminal.text()
    assert rows[row + 1].startswith("  Error "), terminal.text()
    assert "'a?????b'" in terminal.text(), terminal.text()
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_survives_a_flood_of_output():
    flood = "line = ('x'):rep(99) function cycle() for i = 1, 10000 do print(line) end end"
    terminal = WatchedProgram(flood)
    terminal.wait_for("xxxxx...")
    stdout = f"/proc/{terminal.process.pid}/fd/1"
    for cycles in range(20, 401, 20):  # a megabyte each
        end = time.monotonic() + 120
        while int(terminal.screen.display[1].split()[0]) < cycles:
            assert time.monotonic() < end, terminal.text()
            terminal.take(0.05)
            assert os.stat(stdout).st_size < 200_000_000, "the output fills the memory"
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def must_end(terminal, status):
    """Checks that it ends soon and restores the terminal's settings while nobody reads its output."""
    begin = time.monotonic()
    assert terminal.process.wait(30) == status, terminal.process.returncode
    assert time.monotonic() - begin < 5, "it should end within a second"
    assert termios.tcgetattr(terminal.slave) == terminal.before, "the settings have changed"


def test_ends_on_a_terminal_that_nobody_reads():
    for ending in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, b"q", b"\x03"):
        terminal = WatchedProgram(PROGRAM)
        terminal.wait_for("alarm: SEND_SMS")
        terminal.fill()
        terminal.press(ending) if isinstance(ending, bytes) else terminal.process.send_signal(ending)
        must_end(terminal, 0)

    # Even after an error in the program, though nobody can see it.
    terminal = WatchedProgram("function cycle() if io.open('%s') then error('late') end end" % (folder.name + "/fail"))
    terminal.wait_for("cycle time")
    terminal.fill()
    with open(folder.name + "/fail", "w", encoding="utf-8"):
        pass
    must_end(terminal, 1)


def test_a_signal_that_ends_the_process_does_so_on_a_terminal_that_nobody_reads():
    terminal = WatchedProgram("function cycle() if plc.cycle == 3 then print('stuck') while true do end end end")
    terminal.wait_for(" stuck")
    terminal.fill()
    terminal.process.send_signal(signal.SIGTERM)
    terminal.process.send_signal(signal.SIGQUIT)
    must_end(terminal, -signal.SIGQUIT)


def test_ends_on_a_terminal_that_is_stopped():
    for ending in (signal.SIGTERM, b"q"):
        terminal = WatchedProgram(PROGRAM)
        terminal.wait_for("alarm: SEND_SMS")
        terminal.stop_output()
        terminal.press(ending) if isinstance(ending, bytes) else terminal.process.send_signal(ending)
        assert terminal.wait_for_end() == 0  # and the alternate screen is left


def test_works_on_a_terminal_of_another_user():
    """As after su, when the terminal cannot be opened again. The descriptor that it shares with others must
    block again at the end."""
    user = ["--reuid", "nobody", "--regid", "nogroup", "--clear-groups"]
    tried = subprocess.run(["setpriv", *user, corvane, "--version"], capture_output=True, text=True, check=False)
    if tried.returncode != 0:
        print("skipped, since corvane cannot be run as nobody here:", tried.stderr.strip())
        return
    terminal = WatchedProgram(PROGRAM, user=user)
    terminal.wait_for("alarm: SEND_SMS")
    assert not os.get_blocking(terminal.slave)
    terminal.fill()
    terminal.process.send_signal(signal.SIGTERM)
    must_end(terminal, 0)
    assert os.get_blocking(terminal.slave)


def test_continues_when_a_stopped_terminal_is_started():
    terminal = WatchedProgram(PROGRAM)
    terminal.wait_for("alarm: SEND_SMS")
    terminal.stop_output()
    terminal.press(b"?\x11")
    terminal.wait_for("PgUp, PgDn  one page")
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


def test_ends_when_the_terminal_is_closed():
    terminal = WatchedProgram(PROGRAM)
    terminal.wait_for("alarm: SEND_SMS")
    os.close(terminal.slave)
    os.close(terminal.master)  # which sends SIGHUP
    assert terminal.process.wait(30) == 0


def test_works_on_terminals_of_many_types():
    for term in ("xterm-256color", "linux", "vt100", "tmux", "rxvt"):
        terminal = WatchedProgram(PROGRAM, term=term)
        terminal.wait_for("alarm: SEND_SMS", " q: end")
        terminal.press(b"q")
        while terminal.process.poll() is None:
            terminal.take(0.05)
        terminal.take(0.1)
        assert terminal.process.returncode == 0
        assert termios.tcgetattr(terminal.slave) == terminal.before
        assert b"$<" not in terminal.raw, "padding must not be printed"


def test_refuses_what_is_not_a_usable_terminal():
    path = folder.name + "/program.lua"
    with open(path, "w", encoding="utf-8") as file:
        file.write(PROGRAM)
    result = subprocess.run([corvane, "run", path, "--watch"], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout) == (2, ""), result
    assert result.stderr == "corvane: --watch needs a terminal as standard output\n", result
    master, slave = pty.openpty()
    for term in ("no-such-terminal", "dumb", "", None):
        result = subprocess.run([corvane, "run", path, "--watch"], stdout=slave, stderr=subprocess.PIPE, text=True,
                                env={} if term is None else {"TERM": term}, check=False)
        assert result.returncode == 2, result
        assert result.stderr == f"corvane: --watch cannot use a terminal of the type '{term or ''}' (TERM)\n", result
    os.close(master)
    os.close(slave)


only = sys.argv[2:]  # names of tests; none: all
for name, test in list(globals().items()):
    if name.startswith("test_") and (not only or name in only):
        test()
        print(name[5:].replace("_", " "))
