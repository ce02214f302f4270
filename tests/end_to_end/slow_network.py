#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""slow_network.py CORVANE: networks that confirm a message late, in real time and without any setting.

SEND_SMS waits two seconds for a confirmation. Each message must nevertheless go out exactly once and be
confirmed to the program, even if the same text is sent twice.
"""
import subprocess
import sys
import tempfile
import threading

sys.dont_write_bytecode = True
from simulated_modem import SimulatedModem

[corvane] = sys.argv[1:]
DELAYS = ["3s", "5s", "9s"]
LIMIT = 120  # seconds; only a failing test takes so long

# The second message is queued once the first one is confirmed, so its `Sent` is a rising edge of its own.
PROGRAM = """
local sms = SEND_SMS.new { Port = 1, Receiver = "15550101234", Message = "Tank 2 is full" }
local confirmed, was_sent = 0, false
function cycle()
  sms.Send = not sms.Send and sms.Queue == 0
  sms()
  if sms.Sent and not was_sent then
    confirmed = confirmed + 1
    print("confirmed " .. confirmed)
  end
  was_sent = sms.Sent
  if confirmed == 2 then plc.stop() end
end
"""


def send_twice(delay, program, outcome):
    with SimulatedModem(corvane, "--network-delay", delay) as modem:
        result = subprocess.run([corvane, "run", program, "--cycle", "20ms", "--modem", "1=" + modem.device],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=LIMIT, check=False)
        modem.end()
        sent = modem.output.count("sent to +15550101234: Tank 2 is full")
        confirmed = sum(line.startswith("confirmed ") for line in result.stdout.splitlines())
        outcome[delay] = (result.returncode, sent, confirmed, result.stdout)


with tempfile.TemporaryDirectory() as folder:
    file = folder + "/program.lua"
    with open(file, "w", encoding="utf-8") as text:
        text.write(PROGRAM)
    outcomes = {}
    threads = [threading.Thread(target=send_twice, args=(delay, file, outcomes)) for delay in DELAYS]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
for delay in DELAYS:
    status, sent, confirmed, output = outcomes[delay]
    assert (status, sent, confirmed) == (0, 2, 2), f"a network that takes {delay}: {sent} sent, {output}"
