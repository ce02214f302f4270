#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""sms_serial.py PROJECT CORVANE: the SMS blocks and a simulated modem over a real serial path.

A control program sends and receives texts of two parts over a pseudo-terminal and over TCP; the
device is unplugged midway; the example sms_echo runs as ./run starts it.
"""
import os
import queue
import re
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

project, corvane = sys.argv[1:]
LIMIT = 60  # seconds; only a failing test waits this long

# Two parts each, as UCS-2: 7-bit parts are joined without regard to their fill bits.
TO_SEND = "Котёл 2: давление 9,1 бар, выше допустимого. Насос 3 остановлен, задвижка закрыта."
TO_RECEIVE = "Tank 7 is at 81 °C, which is too hot – please send somebody to look at the cooling pump."

PROGRAM = """
local reader = READ_SMS.new { Port = 1, Read = true }
local sender = SEND_SMS.new { Port = 1 }
local expected, to_send = tonumber(plc.args[1]), plc.args[2]
local received = 0
function cycle()
  reader()
  if reader.Complete then
    print("got " .. reader.Number .. ": " .. reader.Message)
    received = received + 1
  end
  sender.Receiver, sender.Message, sender.Send = "4915112345678", to_send, plc.cycle > 1 and to_send ~= ""
  sender()
  local idle = plc.cycle > 3 and sender.State == 1 and sender.Queue == 0
  if idle and received >= expected then plc.stop() end
end
"""

READER = """
local reader = READ_SMS.new { Port = 1, Read = true }
local received = 0
function cycle()
  reader()
  if reader.Complete then
    print(reader.Message)
    received = received + 1
  end
  reader.Read = received < tonumber(plc.args[1])
  if not reader.Read and reader.State == 1 then plc.stop() end  -- all of them are deleted, too
end
"""

FLOODED_SECONDS = 5
FLOODED = f"""
local reader = READ_SMS.new {{ Port = 1, Read = true }}
local begin, printed = plc.clock(), false
function cycle()
  reader()
  if plc.clock() - begin > {FLOODED_SECONDS} and not printed then
    printed = true
    print("running")
  end
end
"""


class Process:
    """A program whose output a test waits for, line by line."""

    def __init__(self, *words):
        self.process = subprocess.Popen(  # it does not outlive a failing test
            ["setpriv", "--pdeathsig", "KILL", *words],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.lines, self.seen, self.log = queue.Queue(), [], []
        self.threads = [
            threading.Thread(target=self._read, args=(self.process.stdout, self.lines.put), daemon=True),
            threading.Thread(target=self._read, args=(self.process.stderr, self.log.append), daemon=True),
        ]
        for thread in self.threads:
            thread.start()

    @staticmethod
    def _read(stream, take):
        for line in stream:
            take(line.rstrip("\n"))

    def wait_for(self, pattern):
        end = time.monotonic() + LIMIT
        while True:
            try:
                self.seen.append(self.lines.get(timeout=max(0, end - time.monotonic())))
            except queue.Empty:
                raise AssertionError(f"no line {pattern!r} in {self.seen}, log {self.log}") from None
            if re.search(pattern, self.seen[-1]):
                return self.seen[-1]

    def wait_for_log(self, text):
        end = time.monotonic() + LIMIT
        while not any(text in line for line in self.log):
            assert time.monotonic() < end, (text, self.log)
            time.sleep(0.01)

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self):
        """Waits for the end; returns all lines of the output."""
        status = self.process.wait(LIMIT)
        for thread in self.threads:
            thread.join()
        while not self.lines.empty():
            self.seen.append(self.lines.get())
        assert status == 0, (status, self.seen, self.log)
        return self.seen


class Modem(Process):
    def __init__(self, *words):
        super().__init__(corvane, "modem", *words)
        self.ready = self.wait_for("^ready")

    def end(self):
        self.say("quit")
        return super().end()


def run(folder, target, expected, to_send, settings="", program=PROGRAM):
    path = os.path.join(folder, "program.lua")
    with open(path, "w", encoding="utf-8") as file:
        file.write(program)
    modem = f"1={target},{settings}patience=30s"
    return Process(corvane, "run", path, "--cycle", "5ms", "--modem", modem, "--", str(expected), to_send)


def clean(log):
    """Whether there is no warning, except that a busy machine has overrun a cycle."""
    return not [line for line in log if re.search(r" (warning (?!overrun: |\d+ more overruns )|error )", line)]


def texts_arrive_whole(folder):
    link = folder + "/modem"
    for words, target in ((["--link", link], lambda _: link),
                          (["--tcp", "127.0.0.1:0"], lambda ready: "tcp:" + re.search(r"127\.0\.0\.1:\d+", ready)[0])):
        modem = Modem(*words)
        modem.say("receive +4915187654321 " + TO_RECEIVE)
        program = run(folder, target(modem.ready), 1, TO_SEND)
        assert program.end() == ["got +4915187654321: " + TO_RECEIVE], program.seen
        assert clean(program.log), program.log
        lines = modem.end()
        assert f"sent to +4915112345678 in 2 parts: {TO_SEND}" in lines, lines
        assert sum(line.startswith("sent ") for line in lines) == 1, lines


def modems_of_every_kind_are_understood(folder):
    link = folder + "/modem"
    for quirk in ("echo-always", "no-echo", "double-echo", "prompt-bare", "prompt-crlf", "no-blank",
                  "alpha-field", "no-alpha-field", "newest-first", "index-from-zero", "delete-empty-ok"):
        modem = Modem("--link", link, "--quirk", quirk, "--baud", "115200")
        modem.say("interrupt \\r\\n+CREG: 1\\r\\n")
        modem.say("receive +4915187654321 Pump 3")
        program = run(folder, link, 1, TO_SEND)
        assert program.end() == ["got +4915187654321: Pump 3"], (quirk, program.seen, program.log)
        assert clean(program.log), (quirk, program.log)
        lines = modem.end()
        assert f"sent to +4915112345678 in 2 parts: {TO_SEND}" in lines, (quirk, lines)


def lists_in_forms_of_their_own_are_read_and_deleted(folder):
    link = folder + "/modem"
    texts = [f"Pump {n} has stopped" for n in range(1, 31)]
    for quirk in ("no-blank", "filled-pdu"):
        modem = Modem("--link", link, "--store-size", "40", "--quirk", quirk)
        for text in texts:
            modem.say("receive +4915187654321 " + text)
        program = run(folder, link, len(texts), "", program=READER)
        assert program.end() == texts, (quirk, program.seen, program.log)
        assert clean(program.log), (quirk, program.log)
        modem.say("list")
        store = modem.wait_for("^store: ")
        assert store == "store: 0 of 40 places taken", (quirk, store)
        modem.end()


def unplugging_loses_and_repeats_nothing(folder):
    link = folder + "/modem"
    modem = Modem("--link", link, "--network-delay", "300ms")
    program = run(folder, link, 2, TO_SEND)
    modem.wait_for("^part 1 of 2")  # the network has the first part; the second is on its way
    modem.say("unplug 500ms")
    modem.say("receive +4915187654321 first")
    modem.say("receive +4915187654321 second")
    assert program.end() == ["got +4915187654321: first", "got +4915187654321: second"], program.seen
    assert any("is lost: " in line for line in program.log), program.log
    lines = modem.end()
    assert sum(line.startswith("sent ") for line in lines) == 1, lines
    assert f"sent to +4915112345678 in 2 parts: {TO_SEND}" in lines, lines


def a_peer_that_never_pauses_does_not_hold_up_the_end(folder):
    """Its address is a host name, so the name service takes part, too."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        def flood():
            connection = server.accept()[0]
            with connection:
                try:
                    while True:
                        connection.sendall(b"y\n" * 32768)
                except OSError:
                    pass  # the program has ended
        thread = threading.Thread(target=flood, daemon=True)
        thread.start()
        program = run(folder, f"tcp:localhost:{server.getsockname()[1]}", 1, "", program=FLOODED)
        program.wait_for("^running")
        cpu = resource.getrusage(resource.RUSAGE_CHILDREN)
        begin = time.monotonic()
        program.process.terminate()
        program.end()
        took = time.monotonic() - begin
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        print(f"ended after {took * 1000:.0f} ms, {after.ru_utime + after.ru_stime - cpu.ru_utime - cpu.ru_stime:.2f} s "
              f"of processor time in {FLOODED_SECONDS} s")
        assert took < 5, took  # a second on an idle machine
        thread.join(LIMIT)


def a_wrong_pin_does_not_lock_the_card(folder):
    link = folder + "/modem"
    modem = Modem("--link", link, "--pin", "4711")
    for logged in ("the PIN is not sent again", "has refused this PIN", "has refused this PIN", "has refused this PIN"):
        program = run(folder, link, 1, "", settings="init=AT+CMEE=1;+CPIN=1111,", program=READER)  # a new start
        program.wait_for_log(logged)
        assert "1111" not in "".join(program.log), program.log
        program.process.terminate()
        program.end()
    kept = os.stat(os.environ["XDG_STATE_HOME"] + "/corvane/program/refused-pins")
    assert kept.st_mode & 0o777 == 0o600, oct(kept.st_mode)
    modem.say("receive +4915187654321 It is open")
    program = run(folder, link, 1, "", settings="init=AT+CPIN=4711,", program=READER)
    assert program.end() == ["It is open"], (program.seen, program.log)
    modem.end()


def the_example_answers_its_scenario(_folder):
    environment = dict(os.environ, CORVANE=corvane)
    command = [project + "/examples/sms_echo.sh"]
    result = subprocess.run(command, capture_output=True, text=True, timeout=LIMIT, env=environment)
    assert result.returncode == 0 and clean(result.stderr.splitlines()), result
    with open(project + "/examples/sms_echo.scenario", encoding="utf-8") as file:
        messages = re.findall(r"receive (\S+) (.*)\n", file.read())
    assert len(messages) == 3
    for number, text in messages:
        assert f"{number} wrote: {text}\n" in result.stdout, result
        assert re.search(f"modem: sent to {re.escape(number)}( in 2 parts)?: {re.escape(text)}\n", result.stdout), result
    assert "Done: 3 messages answered.\n" in result.stdout, result


def the_example_cleans_up_when_it_is_stopped(folder):
    environment = dict(os.environ, CORVANE=corvane, TMPDIR=folder)
    with subprocess.Popen(
        [project + "/examples/sms_echo.sh", "0"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
        env=environment, start_new_session=True,
    ) as process:
        for line in process.stdout:
            if "wrote: " in line:
                os.killpg(process.pid, signal.SIGINT)  # as Ctrl-C does
                break
        process.stdout.read()  # ends when the last process is gone
        process.wait(LIMIT)
    assert os.listdir(folder) == [], os.listdir(folder)


for test in (texts_arrive_whole, modems_of_every_kind_are_understood,
             lists_in_forms_of_their_own_are_read_and_deleted, unplugging_loses_and_repeats_nothing,
             a_peer_that_never_pauses_does_not_hold_up_the_end, a_wrong_pin_does_not_lock_the_card,
             the_example_answers_its_scenario,
             the_example_cleans_up_when_it_is_stopped):
    with tempfile.TemporaryDirectory() as private:
        os.environ["XDG_STATE_HOME"] = private + "/state"
        start = time.monotonic()
        test(private)
        print(f"{test.__name__.replace('_', ' ')}: {time.monotonic() - start:.1f} s", flush=True)
