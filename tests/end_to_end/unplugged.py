#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""unplugged.py CORVANE ADDIN [STEP [INBOX_STEP]]: SMS_OUTBOX and SMS_INBOX on a line that is cut, stalls or loses
its modem after every STEPth octet of the dialogue (default 16, of SMS_INBOX 60; 1 takes many minutes), and on a
line of 9600 baud."""
import concurrent.futures
import os
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from line_proxy import LineProxy
from simulated_modem import SimulatedModem, await_empty_store

corvane, addin = sys.argv[1:3]
step = int(sys.argv[3]) if len(sys.argv) > 3 else 16
inbox_step = int(sys.argv[4]) if len(sys.argv) > 4 else 60 if step == 16 else step
LIMIT = 100  # seconds; the first repetition comes after 15, the second after another 30
AT_ONCE = 16  # they mostly wait
FAULTS = ("cut", "stall", "restart")
SENDING = """
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "hello", Execute = true }
function cycle()
  sms()
  if not sms.Busy then
    print(sms.Done, sms.ErrorId, sms.ErrorText)
    plc.stop()
  end
end
"""
# Accepts the messages, and ends when the file in its argument exists: the test makes it once the modem's store is empty.
RECEIVING = """
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
function cycle()
  inbox()
  local rises = inbox.Ready and not inbox.Accept
  if rises then print(inbox.Text) io.stdout:flush() end
  inbox.Accept = inbox.Ready
  local file = inbox.Waiting == 0 and io.open(plc.args[1])
  if file then plc.stop() end
end
"""
RECEIVED = ["first", "second " * 30, "third"]  # the second has two parts


class Line:
    """A program, a line with a fault, and a modem."""

    def __init__(self, program, fault="cut", after=None, baud=None):
        self.program, self.fault, self.after, self.baud = program, fault, after, baud

    def __enter__(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.folder = self.temporary.name
        self.modem = SimulatedModem(corvane).__enter__()
        fault = (lambda: self.modem.do("restart")) if self.fault == "restart" else self.fault
        with open(self.folder + "/program.lua", "w", encoding="ascii") as file:
            file.write(self.program)
        self.proxy = LineProxy(self.modem.device, fault, self.after, baud=self.baud).__enter__()
        return self

    def __exit__(self, *error):
        self.proxy.__exit__(*error)
        self.modem.__exit__(*error)
        self.temporary.cleanup()

    def start(self):
        return subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", corvane, "run", self.folder + "/program.lua", "--addin", addin,
             "--cycle", "20ms", "--modem", "1=" + self.proxy.target, "--", self.folder + "/end"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env={**os.environ, "STATE_DIRECTORY": self.folder + "/state"})


def finish(process):
    output, log = process.communicate(timeout=LIMIT)
    assert process.returncode == 0, (output, log)
    return output


def send(*fault, **line):
    """The outbox's outputs, how often the network got the message, and how many octets passed."""
    with Line(SENDING, *fault, **line) as line:
        output = finish(line.start())
        line.modem.end()
        return output.rstrip("\n").split("\t"), line.modem.output.count("sent to +15550101234: hello\n"), line.proxy.passed


def check_sending(fault, after):
    (done, error, text), sent, _ = send(fault, after)
    outcome = f"{fault} after octet {after}: {done} {error} {text!r}, sent {sent} times"
    assert (done, error) == ("true", "0"), outcome
    assert sent == 1 or (sent == 2 and text), outcome


def receive(*fault, **line):
    """The texts that the program has accepted, and how many octets passed. The modem's store is empty then."""
    with Line(RECEIVING, *fault, **line) as line:
        for text in RECEIVED:
            line.modem.do("receive +15550101234 " + text)
        process = line.start()
        await_empty_store(line.modem, LIMIT)
        with open(line.folder + "/end", "w", encoding="ascii"):
            pass
        return finish(process).splitlines(), line.proxy.passed


def check_receiving(fault, after):
    texts, _ = receive(fault, after)
    assert texts == RECEIVED, f"{fault} after octet {after}: {texts}"


def walk(check, octets, every):
    cases = [(fault, after) for after in range(1, octets + 1, every) for fault in FAULTS]
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        for end in [pool.submit(check, *case) for case in cases]:
            end.result()
    print(f"{check.__name__}: {len(cases)} faults in {octets} octets")


(done, error, text), sent, octets = send(baud=9600)
assert (done, error, text, sent) == ("true", "0", "", 1), (done, error, text, sent)
walk(check_sending, octets, step)
texts, octets = receive(baud=9600)
assert texts == RECEIVED, texts
walk(check_receiving, octets, inbox_step)
