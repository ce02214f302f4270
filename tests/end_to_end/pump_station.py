#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pump_station.py PROJECT CORVANE: the example tells its whole story, as README shows it, and leaves nothing behind,
even after Ctrl-C. Its page can be opened; with --web it goes on until Ctrl-C. Killed when the alarm is stored, it sends the alarm after the restart, once. What answers to a
forged number may cost is limited."""
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import urllib.request

sys.dont_write_bytecode = True
from process_group import await_end
from simulated_modem import SimulatedModem

project, corvane = sys.argv[1:]

# What must be said, by whom, in this order (lines of the two others may come in between).
STORY = [
    ("phone", "from +15550101234", "STATUS"),
    ("controller", "Anna asks for the status"),
    ("phone", "sent to +15550101234: Level ", " cm, alarm none, disk "),
    ("phone", "from +15559998877", "OPEN THE GATE"),
    ("controller", "refused: a message from the unknown number +15559998877"),
    ("phone", "unplugged for 3s"),
    ("controller", "ALARM: 401 cm, the limit is 400 cm"),
    ("controller", "the alarm is stored"),
    ("phone", "plugged in again"),
    ("phone", "sent to +15550101234 in 2 parts: ТРЕВОГА! Насосная станция 3: уровень воды 401 см"),
    ("phone", "sent to +15550105678 in 2 parts: ТРЕВОГА! Насосная станция 3: уровень воды 401 см"),
    ("phone", "from +15550101234", "ACK"),
    ("controller", "Anna has acknowledged the alarm: pump 2 is started"),
    ("phone", "sent to +15550101234: Thank you. Pump 2 is started."),
    ("controller", "the alarm is over: "),
    ("controller", "4 SMS and 1 e-mail sent, 1 message refused, nothing lost"),
]
MAIL = [
    ("mailbox", "pump3@plant.example -> operator@plant.example"),
    ("mailbox", "Subject: Pump station 3: alarm"),
    ("mailbox", "[levels.csv: "),
]


def missing_in(story, lines):
    rest = iter(lines)
    for speaker, *texts in story:
        if not any(line.startswith(speaker) and all(text in line for text in texts) for line in rest):
            return f"missing or too early: {speaker}: {texts}"
    return ""


def readme_lines():
    """The lines of the run that README shows."""
    with open(project + "/README.md", encoding="utf-8") as file:
        block = file.read().split("\n$ ./run\n")[1].split("\n```")[0]
    return [line for line in block.split("\n") if line != "..."]


def without_numbers(line):
    return re.sub(r"\d+", "0", line)


def page_of(output):
    """The address that the script has printed."""
    return re.search(r"^The program's page: (http://127\.0\.0\.1:\d+/) ", output, re.MULTILINE)[1]


def answers(page):
    with urllib.request.urlopen(page + "healthz", timeout=20) as answer:
        return answer.read() == b"ok\n"


def interrupt_at(moment, *options, status=130):
    """Ctrl-C when a line with this text appears: no process and no file is left. The page works until then."""
    with tempfile.TemporaryDirectory() as folder:
        example = subprocess.Popen([project + "/examples/pump_station.sh", *options], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True, start_new_session=True,
                                   env={**os.environ, "CORVANE": corvane, "TMPDIR": folder})
        output = ""
        while moment not in output:
            line = example.stdout.readline()
            assert line, f"it ended before {moment!r}: {output}"
            output += line
        if "controller" in moment:
            assert answers(page_of(output)), output
        os.killpg(example.pid, signal.SIGINT)
        example.stdout.read()  # to its end: no process of the group is left to write
        assert example.wait(timeout=60) == status, example.returncode
        await_end(example.pid)
        assert os.listdir(folder) == [], os.listdir(folder)
    return page_of(output)


class Station:
    """The program alone, faster than it is shown, with its store in `folder`."""

    def __init__(self, device, folder):
        words = ["run", project + "/examples/pump_station.lua", "--cycle", "5ms", "--modem", f"1={device}",
                 "--", "127.0.0.1", "1", "plc", "s3cret", "pump3@plant.example", "operator@plant.example"]
        self.process = subprocess.Popen([corvane, *words], stdout=subprocess.PIPE, text=True, cwd=folder,
                                        env={**os.environ, "STATE_DIRECTORY": folder + "/state"})
        self.said = ""

    def await_saying(self, text, times=1):
        while self.said.count(text) < times:
            line = self.process.stdout.readline()
            assert line, f"no {text!r} in {self.said!r}"
            self.said += line

    def end(self, with_signal):
        self.process.send_signal(with_signal)
        self.said += self.process.stdout.read()
        self.process.stdout.close()
        self.process.wait(60)


def await_count(modem, text, count):
    while modem.output.count(text) < count:
        modem.await_output("\n")


def an_alarm_survives_kill_9():
    alarms = [f"sent to {number} in 2 parts: ТРЕВОГА!" for number in ("+15550101234", "+15550105678")]
    with SimulatedModem(corvane) as modem, tempfile.TemporaryDirectory() as folder:
        station = Station(folder + "/unplugged", folder)
        station.await_saying("the alarm is stored")
        station.end(signal.SIGKILL)
        station = Station(modem.device, folder)
        await_count(modem, alarms[0], 1)
        await_count(modem, alarms[1], 1)
        station.await_saying("this alarm was queued before the restart")
        station.end(signal.SIGTERM)
        modem.end()
    for alarm in alarms:
        assert modem.output.count(alarm) == 1, modem.output


def answers_have_a_limit():
    to_anna = "sent to +15550101234: Commands: STATUS, ACK\n"
    with SimulatedModem(corvane) as modem, tempfile.TemporaryDirectory() as folder:
        for _ in range(22):
            modem.do("receive +15550101234 hello")
        station = Station(modem.device, folder)
        station.await_saying("no answer to +15550101234: the limit for this hour is reached", times=2)
        await_count(modem, to_anna, 20)
        station.end(signal.SIGTERM)
        modem.end()
    assert modem.output.count(to_anna) == 20, modem.output
    assert station.said.count("wrote something that is not a command") == 22, station.said


an_alarm_survives_kill_9()
answers_have_a_limit()
interrupt_at("The program's page")
interrupt_at("controller | Anna asks for the status")
interrupt_at("unplugged for 3s")
try:
    used = socket.create_server(("127.0.0.1", 8080))
except OSError:
    used = None  # by somebody else, which serves as well
assert not interrupt_at("controller | 4 SMS and 1 e-mail sent", "--web", status=0).endswith(":8080/")
if used is not None:
    used.close()
refused = subprocess.run([project + "/examples/pump_station.sh", "--wbe"], capture_output=True, text=True, check=False,
                         env={**os.environ, "CORVANE": corvane})
assert refused.returncode == 2 and "the only option is --web" in refused.stderr, refused

with tempfile.TemporaryDirectory() as folder:
    result = subprocess.run([project + "/examples/pump_station.sh"], capture_output=True, text=True, timeout=100,
                            env={**os.environ, "CORVANE": corvane, "TMPDIR": folder})
    left = os.listdir(folder)
lines = result.stdout.splitlines()
assert result.returncode == 0, result
assert missing_in(STORY, lines) == "", missing_in(STORY, lines) + "\n" + result.stdout + result.stderr
assert missing_in(MAIL, lines) == "", missing_in(MAIL, lines) + "\n" + result.stdout + result.stderr
assert any("start_pump.sh: pump 2 is switched on" in line for line in lines), result.stdout
assert sum("sent to +15550105678" in line for line in lines) == 1, "an alarm went out twice\n" + result.stdout
assert left == [], left
shapes = {without_numbers(line) for line in lines}
strange = [line for line in readme_lines() if without_numbers(line) not in shapes]
assert readme_lines() and not strange, f"README shows lines that do not appear: {strange}\n{result.stdout}"
print("the whole story is told")
