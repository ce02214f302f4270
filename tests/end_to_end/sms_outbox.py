#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""sms_outbox.py CORVANE ADDIN: SMS_OUTBOX through the simulated modem, on good days."""
import os
import sqlite3
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from simulated_modem import SimulatedModem

[corvane, addin] = sys.argv[1:]
LIMIT = 60  # seconds; only a failing test takes so long

# One job, with the inputs that the test gives; prints how it ends.
ONE_JOB = """
local sms = SMS_OUTBOX.new { INPUTS }
function cycle()
  sms.Execute = true
  sms()
  if not sms.Busy then
    print(sms.Done, sms.Error, sms.ErrorId, sms.Stored, sms.Sent, sms.Failed, sms.Parts, sms.Waiting)
    print("text: " .. sms.ErrorText)
    plc.stop()
  end
end
"""


def start(folder, program, *options):
    file = folder + "/program.lua"
    with open(file, "w", encoding="utf-8") as text:
        text.write(program)
    return subprocess.Popen(
        ["setpriv", "--pdeathsig", "KILL", corvane, "run", file, "--addin", addin, "--cycle", "10ms", *options],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        env={**os.environ, "STATE_DIRECTORY": folder + "/state"})


def run(folder, program, *options):
    process = start(folder, program, *options)
    output, log = process.communicate(timeout=LIMIT)
    assert process.returncode == 0, log
    return output.splitlines(), log


def rows(folder, columns):
    with sqlite3.connect(f"file:{folder}/state/messages.db?mode=ro", uri=True) as store:
        return store.execute(f"SELECT {columns} FROM outgoing ORDER BY id").fetchall()


def a_message_goes_out_to_each_receiver(folder):
    with SimulatedModem(corvane) as modem:
        output, _ = run(folder, ONE_JOB.replace(
            "INPUTS", 'Port = 1, Receiver = "+1 (555) 010-1234; 0151/2345", Text = "Kessel zu heiß: 95 °C [2]"'),
            "--modem", "1=" + modem.device)
        modem.end()
    assert output == ["true\tfalse\t0\ttrue\t2\t0\t1\t0", "text: "], output
    for receiver in "+15550101234", "01512345":
        assert modem.output.count(f"sent to {receiver}: Kessel zu heiß: 95 °C [2]") == 1, modem.output


for test in (a_message_goes_out_to_each_receiver,):
    with tempfile.TemporaryDirectory() as folder:
        test(folder)
