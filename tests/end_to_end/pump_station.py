#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pump_station.py PROJECT CORVANE: the example tells its whole story, as README shows it, and leaves nothing behind,
even after Ctrl-C. Two stories at the same time do not meet. Its page can be opened; with --web it goes on until Ctrl-C.
Books that do not agree are found. Killed when the alarm is stored, it sends the alarm after the restart, once. What
answers to a forged number may cost is limited."""
import concurrent.futures
import os
import pathlib
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

# What must be said, by whom, in this order (other lines may come in between).
ALARM = "ТРЕВОГА! Насосная станция 3: вода 401 см"
STORIES = [
    [
        ("controller", "the station starts: 370 cm, alarm none"),
        ("phone", "from +15550101234", "STATUS"),
        ("controller", "Anna asks for the status"),
        ("phone", "sent to +15550101234: Level ", " cm, alarm none, disk "),
        ("phone", "from +15559998877", "OPEN THE GATE"),
        ("controller", "refused: a message from the unknown number +15559998877"),
        ("phone", "unplugged for 2s"),
        ("phone", "plugged in again"),
        ("phone", "sent to +15550101234: " + ALARM),
        ("story", "kill -9 of the controller, while the network has the alarm for Boris; it is started again"),
        ("controller", "the station starts: ", " cm, alarm active"),
        ("phone", "sent to +15550105678: " + ALARM),
        ("phone", "from +15550101234", "ACK"),
        ("controller", "Anna has acknowledged the alarm: pump 2 is started"),
        ("phone", "sent to +15550101234: Thank you. Pump 2 is started."),
        ("controller", "no message waits"),
        ("sent ", " 4 SMS, 1 e-mail"),
        ("delivered ", " 4 SMS, as their delivery reports say; 1 e-mail, as the mail server says"),
        ("received ", " 3 SMS"),
        ("repeated ", " to +15550105678, arrived 2 times: the end of an attempt is not known"),
        ("lost ", " nothing"),
        ("doubled ", " nothing"),
    ],
    [
        ("controller", "ALARM: 401 cm, the limit is 400 cm"),
        ("controller", "the alarm is stored"),
        ("controller", "start_pump.sh: pump 2 is switched on"),
    ],
    [
        ("controller", "Anna has acknowledged the alarm"),
        ("controller", "the alarm is over: "),
    ],
    [
        ("mailbox", "the mail server is away for 60 s"),
        ("mailbox", "the mail server is back"),
        ("mailbox", "pump3@plant.example -> operator@plant.example"),
        ("mailbox", "Subject: Pump station 3: alarm"),
        ("mailbox", "[levels.csv: "),
        ("controller", "no message waits"),
    ],
]
# A phone that writes its book wrongly.
FORGETFUL = """#!/bin/bash
[ "$1" = modem ] || exec {corvane} "$@"
exec {corvane} "$@" > >(sed -u -e '/^sent to +15550105678/d' -e '/Thank you/p')
"""


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


def tell(*options, command=corvane, folder=None, errors=subprocess.DEVNULL):
    """The story, as it is started by ./run; its processes are a group."""
    return subprocess.Popen([project + "/examples/pump_station.sh", *options], stdout=subprocess.PIPE,
                            stderr=errors, text=True, start_new_session=True,
                            env={**os.environ, "CORVANE": command, "TMPDIR": folder})


def ended(story, folder):
    """Its status and the rest of its output; no process and no file is left."""
    output = story.stdout.read()  # to its end: no process of the group is left to write
    status = story.wait(timeout=60)
    await_end(story.pid)
    assert os.listdir(folder) == [], os.listdir(folder)
    return status, output


def page_of(output):
    """The address that the script has printed."""
    return re.findall(r"^The program's page: (http://127\.0\.0\.1:\d+/) ", output, re.MULTILINE)[-1]


def answers(page):
    with urllib.request.urlopen(page + "healthz", timeout=20) as answer:
        return answer.read() == b"ok\n"


def is_interrupted_at(moment, *options, status=130):
    """Ctrl-C when a line with this text appears. The page works until then. @return what was said until then"""
    with tempfile.TemporaryDirectory() as folder:
        story = tell(*options, folder=folder)
        output = ""
        while moment not in output:
            line = story.stdout.readline()
            assert line, f"it ended before {moment!r}: {output}"
            output += line
        if "controller | " in moment:
            assert answers(page_of(output)), output
        os.killpg(story.pid, signal.SIGINT)
        assert (found := ended(story, folder)[0]) == status, found
    return output


def ends_when_nobody_reads_it():
    with tempfile.TemporaryDirectory() as folder:
        story = tell(folder=folder, errors=subprocess.PIPE)
        story.stdout.readline()
        story.stdout.close()
        assert (errors := story.stderr.read()) == "", errors
        story.stderr.close()
        assert story.wait(60) == 128 + signal.SIGTERM, story.returncode
        await_end(story.pid)
        assert os.listdir(folder) == [], os.listdir(folder)


def goes_on_with_its_page():
    """On another port, since the usual one is in use."""
    output = is_interrupted_at("cm, alarm over", "--web", status=0)
    assert not page_of(output).endswith(":8080/"), output


def is_told_to_its_end():
    with tempfile.TemporaryDirectory() as folder:
        story = tell(folder=folder)
        status, output = ended(story, folder)
    lines = output.splitlines()
    assert status == 0, output
    for part in STORIES:
        assert missing_in(part, lines) == "", missing_in(part, lines) + "\n" + output
    assert sum("sent to +15550101234: ТРЕВОГА" in line for line in lines) == 1, "an alarm went out twice\n" + output
    shapes = {without_numbers(line) for line in lines}
    strange = [line for line in readme_lines() if without_numbers(line) not in shapes]
    assert readme_lines() and not strange, f"README shows lines that do not appear: {strange}\n{output}"


def finds_what_is_missing():
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as tools:
        wrapper = pathlib.Path(tools, "corvane")
        wrapper.write_text(FORGETFUL.format(corvane=corvane), encoding="utf-8")
        wrapper.chmod(0o755)
        status, output = ended(tell(command=str(wrapper), folder=folder), folder)
    assert status == 1, output
    assert re.search(r"^lost      SMS \d+ to \+15550105678 counts as sent, but has not arrived$", output, re.MULTILINE), output
    assert re.search(r"^doubled   SMS \d+ to \+15550101234 arrived 2 times$", output, re.MULTILINE), output


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
    alarms = [f"sent to {number}: ТРЕВОГА!" for number in ("+15550101234", "+15550105678")]
    with SimulatedModem(corvane) as modem, tempfile.TemporaryDirectory() as folder:
        station = Station(folder + "/unplugged", folder)
        station.await_saying("the alarm is stored")
        station.end(signal.SIGKILL)
        pathlib.Path(folder, "state/retain.json").unlink(missing_ok=True)  # as if it came a second earlier
        station = Station(modem.device, folder)
        await_count(modem, alarms[0], 1)
        await_count(modem, alarms[1], 1)
        station.await_saying("this alarm was queued before the restart")
        station.end(signal.SIGTERM)
        modem.end()
        books = read_books(folder, modem.output)
    for alarm in alarms:
        assert modem.output.count(alarm) == 1, modem.output
    assert books.returncode == 1 and "sent      2 SMS, 0 e-mail\n" in books.stdout, books
    assert re.search(r"^lost      e-mail \d+ to operator@plant.example is not sent: waiting", books.stdout,
                     re.MULTILINE) and "doubled   nothing" in books.stdout, books


def read_books(folder, phone):
    pathlib.Path(folder, "phone").write_text(phone, encoding="utf-8")
    return subprocess.run([project + "/examples/books.py", corvane, folder + "/state/messages.db", folder + "/phone",
                           folder + "/mails"], capture_output=True, text=True, check=False)


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


refused = subprocess.run([project + "/examples/pump_station.sh", "--wbe"], capture_output=True, text=True, check=False,
                         env={**os.environ, "CORVANE": corvane})
assert refused.returncode == 2 and "the only option is --web" in refused.stderr, refused

moments = ["A pump station", "The program's page", "controller | Anna asks for the status", "unplugged for 2s",
           "the network takes 10 s", "kill -9 of the controller", "alarm active", "the network is fast again"]
try:
    used = socket.create_server(("127.0.0.1", 8080))
except OSError:
    used = None  # by somebody else, which serves as well
# They wait most of the time, so they do it together.
with concurrent.futures.ThreadPoolExecutor(20) as pool:
    tests = [pool.submit(test) for test in (is_told_to_its_end, finds_what_is_missing, goes_on_with_its_page,
                                            ends_when_nobody_reads_it,
                                            an_alarm_survives_kill_9, answers_have_a_limit)]
    tests += [pool.submit(is_interrupted_at, moment) for moment in moments]
    for test in tests:
        test.result()
if used is not None:
    used.close()
print("the whole story is told")
