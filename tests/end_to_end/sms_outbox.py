#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""sms_outbox.py CORVANE ADDIN: SMS_OUTBOX with simulated modems of every kind."""
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from simulated_modem import SimulatedModem
from sms_outbox_program import ONE_JOB, Programs

[corvane, addin] = sys.argv[1:]


def job(inputs):
    return ONE_JOB.replace("INPUTS", "Port = 1, " + inputs)


def a_message_goes_out_to_each_receiver(programs):
    with SimulatedModem(corvane) as modem:
        output, _ = programs.run(job('Receiver = "+1 (555) 010-1234; 0151/2345", Text = "Kessel zu heiß: 95 °C [2]"'),
                                 "--modem", "1=" + modem.device)
        modem.end()
    assert output[-2:] == ["false true false 0 true 2 0 0", "text: "], output
    for receiver in "+15550101234", "01512345":
        assert modem.output.count(f"sent to {receiver}: Kessel zu heiß: 95 °C [2]") == 1, modem.output
    assert programs.rows("state, attempts, unknown_ends, in_transfer") == [(1, 1, 0, 0)] * 2


def long_texts_arrive_as_they_were(programs):
    text = "Котёл 2: давление 9,1 бар, выше допустимого 😀. " * 20
    with SimulatedModem(corvane) as modem:
        output, _ = programs.run(job(f'Receiver = "4040", Flash = true, ValidFor = 3600, Text = "{text}"'),
                                 "--modem", "1=" + modem.device)
        modem.end()
    assert output[-2] == "false true false 0 true 1 0 0", output
    assert f"sent to 4040 in 15 parts: {text}\n" in modem.output, modem.output
    assert "valid for 1 h, class 0" in modem.output, modem.output


REPORTED = """
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = ("x"):rep(200), Report = true }
local done
function cycle()
  sms.Execute = true
  sms()
  done = done or sms.Done
  if done and sms.Delivered == 1 then plc.stop() end
end
"""


def delivery_is_reported_after_done(programs):
    with SimulatedModem(corvane) as modem:
        modem.do("report delivered after 1s")
        programs.run(REPORTED, "--modem", "1=" + modem.device)
    assert programs.rows("state, report_awaited") == [(1, 0)]


MANY = """
local jobs = {}
for i = 1, 3 do
  local receivers = {}
  for n = 1, 20 do receivers[n] = "+1555010" .. (1000 + 20 * i + n) end
  jobs[i] = SMS_OUTBOX.new { Port = 1, Receiver = table.concat(receivers, ";"), Text = "job " .. i, Urgent = true }
end
function cycle()
  local done = 0
  for _, sms in ipairs(jobs) do
    sms.Execute = true
    sms()
    if sms.Done then done = done + 1 end
  end
  if done == #jobs then plc.stop() end
end
"""


def many_messages_go_out_once_each(programs):
    with SimulatedModem(corvane) as modem:
        programs.run(MANY, "--modem", "1=" + modem.device)
        modem.end()
    sent = [line for line in modem.output.splitlines() if line.startswith("sent to ")]
    assert len(sent) == len(set(sent)) == 60, modem.output


def modems_of_every_kind_send(programs):
    """Each quirk of the simulator but one; what is received with them is in sms_inbox.py."""
    text = "Q Grüße € " + "x" * 160
    help_text = subprocess.run([corvane, "modem", "--help"], capture_output=True, text=True, check=True).stdout
    with open(pathlib.Path(__file__).parents[2] / "runtime/modem_simulator/quirks.cpp", encoding="utf-8") as table:
        quirks = re.findall(r'QuirkRow\{Quirk::\w+, "([a-z-]+)"', table.read())
    assert len(quirks) >= 16 and all(quirk in help_text for quirk in quirks), (quirks, help_text)
    for quirk in quirks:
        if quirk == "no-prompt":
            continue
        own = Programs(corvane, addin, tempfile.mkdtemp(dir=programs.folder))
        with SimulatedModem(corvane, "--quirk", quirk) as modem:
            output, _ = own.run(job(f'Receiver = "+15550101234", Text = "{text}"'), "--modem", "1=" + modem.device)
            modem.end()
        assert output[-2:] == ["false true false 0 true 1 0 0", "text: "], (quirk, output)
        assert modem.output.count(f"sent to +15550101234 in 2 parts: {text}\n") == 1, (quirk, modem.output)


def a_modem_without_a_prompt_gets_no_text_and_the_log_says_so(programs):
    """It cannot be told from one whose prompt is late, and a text in place of a command does harm."""
    with SimulatedModem(corvane, "--quirk", "no-prompt") as modem:
        output, log = programs.run(job('Receiver = "+15550101234", Text = "hello", ValidFor = 12'),
                                   "--modem", "1=" + modem.device)
        modem.end()
    assert "20" == output[-2].split()[3], output
    assert "the modem shows no prompt (>) after AT+CMGS" in output[-1], output
    assert log.count("the modem shows no prompt (>) after AT+CMGS, so it gets no text; restart it") >= 1, log
    assert "sent to" not in modem.output, modem.output


for test in (modems_of_every_kind_send, a_modem_without_a_prompt_gets_no_text_and_the_log_says_so, a_message_goes_out_to_each_receiver, long_texts_arrive_as_they_were,
             delivery_is_reported_after_done, many_messages_go_out_once_each):
    with tempfile.TemporaryDirectory() as folder:
        test(Programs(corvane, addin, folder))
