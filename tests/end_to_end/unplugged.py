#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""unplugged.py CORVANE ADDIN [STEP]: SMS_OUTBOX and a line that is cut, stalls or loses its modem after
every STEPth octet of the dialogue (default 16; 1 takes many minutes), and a line of 9600 baud."""
import concurrent.futures
import os
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from line_proxy import LineProxy
from simulated_modem import SimulatedModem

corvane, addin = sys.argv[1:3]
step = int(sys.argv[3]) if len(sys.argv) > 3 else 16
LIMIT = 100  # seconds; the first repetition comes after 15, the second after another 30
AT_ONCE = 16  # they mostly wait
PROGRAM = """
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "hello", Execute = true }
function cycle()
  sms()
  if not sms.Busy then
    print(sms.Done, sms.ErrorId, sms.ErrorText)
    plc.stop()
  end
end
"""


def send(fault="cut", after=None, baud=None):
    """The outbox's words, how often the network got the message, and the octets that passed."""
    with tempfile.TemporaryDirectory() as folder, SimulatedModem(corvane) as modem:
        if fault == "restart":
            fault = lambda: modem.do("restart")
        with open(folder + "/program.lua", "w", encoding="ascii") as file:
            file.write(PROGRAM)
        with LineProxy(modem.device, fault, after, baud=baud) as line:
            result = subprocess.run(
                ["setpriv", "--pdeathsig", "KILL", corvane, "run", folder + "/program.lua",
                 "--addin", addin, "--cycle", "20ms", "--modem", "1=" + line.target],
                capture_output=True, text=True, timeout=LIMIT,
                env={**os.environ, "STATE_DIRECTORY": folder + "/state"})
        modem.end()
        assert result.returncode == 0, result
        return result.stdout.rstrip("\n").split("\t"), modem.output.count("sent to +15550101234: hello\n"), line.passed


def check(fault, after):
    (done, error, text), sent, _ = send(fault, after)
    told = f"{fault} after octet {after}: {done} {error} {text!r}, sent {sent} times"
    assert (done, error) == ("true", "0"), told
    assert sent == 1 or (sent == 2 and text), told


(done, error, text), sent, octets = send(baud=9600)
assert (done, error, text, sent) == ("true", "0", "", 1), (done, error, text, sent)
cases = [(fault, after) for after in range(1, octets + 1, step) for fault in ("cut", "stall", "restart")]
with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
    for end in [pool.submit(check, *case) for case in cases]:
        end.result()
print(f"{len(cases)} faults in {octets} octets")
