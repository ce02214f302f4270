#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pages.py PROJECT CORVANE PAGE...: does what the pages show, each page in its own folder.

Fenced blocks, from the first to the last:
```lua      A whole program. With a name above it (see page.py), it is the file of that name. Otherwise it runs
            for 50 cycles of 5 ms, or until it stops, and must end without an error or a warning.
```console  A terminal. Commands follow "$ " and must succeed; the rest is all that they print; at "^C" the
            user presses Ctrl-C. If the last line is "...", the program keeps running, unless --cycles ends it; at
            the end of the page Ctrl-C must end it with status 0.
```input    What the user types where the first program that keeps running is.
```output   After a program that ran: all that it prints. Elsewhere: what a running program prints next.
Every other block with a name is a file.

"..." stands for any number of lines. Times, durations, cycle counts and terminal numbers may differ. Warnings of a cycle
that takes long do not count.
A Modbus server at port 5020 is at one that is free. A modem at /dev/serial/by-id/ is a simulated one, to which somebody has sent "Hello".
"""
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading

sys.dont_write_bytecode = True
from page import commands, output_pattern, read_blocks, shape
from patience import TIME_FACTOR
from simulated_modem import PATIENCE

project, corvane, *pages = sys.argv[1:]
# These change the machine or build everything. packages.py installs what the pages install.
NOT_HERE = ("sudo ", "git ", "cd corvane", "./run", "./test", "packaging/")
BY_ID = "/dev/serial/by-id/"
# What is logged on a busy machine, or in an emulator, where a cycle takes long.
SLOW = r".* warning (.*\boverrun|cycle \d+ has been running )"
changed = threading.Condition()  # a terminal has printed something, or its program has ended


def shows(expected, text):
    """Whether a program that has ended shows this. Its log is written by a thread of its own: what it prints may come
    before it or after it, but each of the two is in order."""
    def part(whole, is_log):
        return "".join(line for line in whole.splitlines(True) if line == "...\n" or line.startswith("TIME ") == is_log)
    return all(re.fullmatch(output_pattern(part(shape(expected), is_log)), part(text, is_log)) for is_log in (True, False))


class Terminal:
    """A shell with commands, and what it shows. `text` has been checked up to `taken`."""

    def __init__(self, script, page):
        self.page, self.text, self.taken, self.ended = page, "", 0, False
        script = script.replace("corvane test ", f"corvane test --timeout {30 * TIME_FACTOR}s ")
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "bash", "-ec", page.real(script)], cwd=page.folder, env=page.environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            with changed:
                self.text += "" if re.match(SLOW, line) else shape(self.page.shown(line))
                changed.notify_all()
        with changed:
            self.ended = True
            changed.notify_all()

    def type(self, text):
        self.process.stdin.write(text)
        self.process.stdin.flush()

    def take(self, expected):
        """Whether it shows this next; if so, that counts as checked."""
        found = re.compile(output_pattern(expected)).match(self.text, self.taken)
        self.taken = found.end() if found else self.taken
        return found

    def interrupt(self):
        os.killpg(self.process.pid, signal.SIGINT)

    def end(self):
        """Waits for the end; returns the status."""
        with changed:
            ended = changed.wait_for(lambda: self.ended, PATIENCE)
        if not ended:
            os.killpg(self.process.pid, signal.SIGKILL)
        status = self.process.wait(PATIENCE)
        self.reader.join()
        self.process.stdin.close()
        self.process.stdout.close()
        return status if ended else "killed, since it did not end"


class Page:
    def __init__(self, name, folder):
        self.name, self.folder, self.failures, self.left_out = name, folder, [], []
        self.running = []  # programs that keep running, the oldest first
        self.modems = []   # simulated, instead of real ones
        self.printed = None  # by the program in the preceding block, if there was one
        binaries = folder + "/build/run/bin"
        os.makedirs(binaries)
        os.symlink(corvane, binaries + "/corvane")
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.modbus_port = str(free.getsockname()[1])
        self.environment = {**os.environ, "HOME": folder, "XDG_RUNTIME_DIR": folder, "PATH": binaries + ":" + os.environ["PATH"]}

    def real(self, text):
        """The page's text with this test's folder instead of the page's."""
        text = text.replace("/tmp/", self.folder + "/").replace(BY_ID, self.folder + "/by-id/")
        return re.sub(r"\b5020\b", self.modbus_port, text)

    def shown(self, text):
        return text.replace(self.folder + "/by-id/", BY_ID).replace(self.folder + "/", "/tmp/")

    def fail(self, text):
        self.failures.append(f"{self.name}: {text}")

    def plug_in_modems(self, blocks):
        names = {name for block in blocks for name in re.findall(r"\busb-[\w.:-]+", block.text)}
        for name in sorted(names):
            os.makedirs(self.folder + "/by-id", exist_ok=True)
            modem = Terminal(f"corvane modem --link {BY_ID}{name}", self)
            self.modems.append(modem)
            with changed:
                assert changed.wait_for(lambda m=modem: m.text or m.ended, PATIENCE) and not modem.ended, modem.text
            modem.type("receive +15550101234 Hello\n")

    def run_program(self, program):
        path = self.folder + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(self.real(program))
        command = [corvane, "run", path, "--cycle", "5ms", "--cycles", "50"]
        result = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False,
                                env=self.environment)
        self.printed = result.stdout
        # Programs that read messages run without a modem here.
        log = re.sub(rf"({SLOW}|.* warning modem port 1: a block needs it, but it is not configured; ).*\n", "", result.stderr)
        if result.returncode != 0 or re.search(r" (warning|error) ", log):
            self.fail(f"{program}\nstatus {result.returncode}\n{result.stdout}{result.stderr}")

    def use_terminal(self, text):
        typed = commands(text)
        if any(command.startswith(NOT_HERE) for command in typed):
            self.left_out += typed
            return
        expected = re.sub(r"^\$ .*\n", "", text, flags=re.MULTILINE)
        # A Ctrl-C while a program ends by itself would kill it, when it has given up its signal handlers.
        goes_on = expected.endswith("...\n") and "--cycles" not in typed[-1]
        if goes_on:
            expected = expected.removesuffix("...\n")
        until_ctrl_c, ctrl_c, rest = expected.partition("^C\n")
        terminal = Terminal("\n".join(typed), self)
        if goes_on:
            self.running.append(terminal)
        good = True
        if goes_on or ctrl_c:
            with changed:
                good = changed.wait_for(lambda: terminal.take(until_ctrl_c), PATIENCE)
        if ctrl_c:
            terminal.interrupt()
        if not goes_on:
            good = terminal.end() == 0 and shows(until_ctrl_c + rest, terminal.text) and good
        if not good:
            self.fail(f"{typed} ended with status {terminal.process.returncode}, wanted:\n{shape(expected)}\n"
                      f"but it shows:\n{terminal.text}")

    def await_output(self, expected):
        with changed:
            if not changed.wait_for(lambda: any(one.take(expected) for one in self.running), PATIENCE):
                shown = [one.text[one.taken:] for one in self.running]
                self.fail(f"no program shows:\n{expected}\nbut:\n{shown}")

    def do(self, block):
        printed, self.printed = self.printed, None
        if block.name:
            with open(f"{self.folder}/{block.name}", "w", encoding="utf-8") as file:
                file.write(self.real(block.text))
        elif block.language == "lua":
            self.run_program(block.text)
        elif block.language == "console":
            self.use_terminal(block.text)
        elif block.language == "input":
            self.running[0].type(block.text)
        elif block.language == "output" and printed is None:
            self.await_output(block.text)
        elif block.language == "output" and not re.fullmatch(output_pattern(block.text), shape(printed)):
            self.fail(f"wanted:\n{block.text}\nbut the program prints:\n{printed}")

    def end(self):
        for terminal in reversed(self.running):
            terminal.interrupt()
            status = terminal.end()
            if status != 0:
                self.fail(f"Ctrl-C: status {status}\n{terminal.text}")
        for modem in self.modems:
            os.killpg(modem.process.pid, signal.SIGTERM)
            modem.end()


def failures_of(name):
    blocks = read_blocks(project, name)
    with tempfile.TemporaryDirectory(prefix="page-") as folder:
        page = Page(name, folder)
        try:
            page.plug_in_modems(blocks)
            for block in blocks:
                if not page.failures:  # the rest of a page builds on what comes before
                    page.do(block)
        finally:
            page.end()
    if not any(block.language in ("lua", "console") for block in blocks):
        page.fail("shows nothing to do")
    for command in page.left_out:
        print(f"{name}: not run here: {command}")
    return page.failures


failures = [failure for name in pages for failure in failures_of(name)]
print("\n\n".join(failures) or f"{len(pages)} pages: everything does what its page says")
sys.exit(1 if failures else 0)
