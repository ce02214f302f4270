#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""sms_outbox_faults.py CORVANE ADDIN: SMS_OUTBOX on bad days: killed, without a modem, a network or a store.

The scenarios run side by side, since most of them wait for the next attempt.
"""
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import traceback

sys.dont_write_bytecode = True
from bench_client import wait_for
from simulated_modem import PATIENCE, SimulatedModem
from sms_outbox_program import MANY_JOBS, NO_EDGE, ONE_JOB, Programs
from tiny_disk import TinyDisk, can_mount

[corvane, addin] = sys.argv[1:]
TEXT = "Tank 2 is full"
SENT = "sent to +15550101234: " + TEXT
NEVER_ENDS = NO_EDGE.replace("idle == 100", "false")


def job(inputs=""):
    return ONE_JOB.replace("INPUTS", f'Port = 1, Receiver = "+15550101234", Text = "{TEXT}", {inputs}')


def read_until(process, wanted):
    """The lines up to the one that begins with `wanted`."""
    lines = []
    while not lines or not lines[-1].startswith(wanted):
        line = process.stdout.readline()
        assert line, (lines, process.stderr.read())
        lines.append(line.rstrip("\n"))
    return lines


def killed_at(milliseconds):
    """Killed at some step of the dialogue: the message goes out once, or is marked and repeated once."""
    def test(programs):
        with SimulatedModem(corvane, "--prompt-delay", "150ms", "--network-delay", "300ms") as modem:
            process = programs.start(job(), "--modem", "1=" + modem.device)
            read_until(process, "true false false 0 true")  # stored
            time.sleep(milliseconds / 1000)  # the moment of the kill is what this test varies
            process.kill()
            process.communicate()
            process = programs.start(NEVER_ENDS, "--modem", "1=" + modem.device)
            wait_for(lambda: programs.rows("state, in_transfer") == [(1, 0)], "the message to be sent", 90)
            process.kill()
            process.communicate()
            programs.run(NO_EDGE, "--modem", "1=" + modem.device)  # nothing is left to be sent
            modem.end()
        [(state, unknown_ends, in_transfer)] = programs.rows("state, unknown_ends, in_transfer")
        sent = modem.output.count(SENT)
        assert (state, in_transfer) == (1, 0), (state, modem.output)
        assert unknown_ends <= 1 and 1 <= sent <= 1 + unknown_ends, (sent, unknown_ends, modem.output)
    test.__name__ = f"killed {milliseconds} ms after it was stored"
    return test


def without_coverage(programs):
    with SimulatedModem(corvane) as modem:
        modem.do("no coverage 5s")
        output, _ = programs.run(job(), "--modem", "1=" + modem.device)
        modem.end()
    assert output[-2:] == ["false true false 0 true 1 0 0", "text: "], output
    assert modem.output.count(SENT) == 1
    [(attempts, reason)] = programs.rows("attempts, reason")
    assert attempts == 2 and "331" in reason, (attempts, reason)


def a_dead_modem(programs):
    with SimulatedModem(corvane) as modem:
        modem.do("mute 10min")
        output, _ = programs.run(job("ValidFor = 5"), "--modem", "1=" + modem.device)
    assert output[-2] == "false false true 20 true 0 1 0", output
    assert output[-1].startswith("text: +15550101234: not sent within ValidFor"), output


def plugged_in_later(programs):
    device = programs.folder + "/modem"
    process = programs.start(job(), "--modem", "1=" + device)
    read_until(process, "true false false 0 true")
    with SimulatedModem(corvane) as modem:
        os.symlink(os.path.realpath(modem.device), device)
        output, _ = programs.finish(process)
        modem.end()
    assert output[-2] == "false true false 0 true 1 0 0", output
    assert modem.output.count(SENT) == 1


def a_missing_modem(programs):
    output, _ = programs.run(job("ValidFor = 5"), "--modem", f"1={programs.folder}/modem")
    assert output[-2] == "false false true 20 true 0 1 0", output


def a_port_that_nobody_configured(programs):
    output, _ = programs.run(job())
    assert output[-2].startswith("false false true 14 false"), output
    assert "--modem 1=" in output[-1], output


def a_second_program_with_one_store(programs):
    first = programs.start(NEVER_ENDS, "--modem", f"1={programs.folder}/none")
    wait_for(lambda: os.path.exists(programs.folder + "/state/messages.db"), "the store")
    with SimulatedModem(corvane) as modem:
        output, log = programs.run(job(), "--modem", "1=" + modem.device)
        modem.end()
    first.kill()
    first.communicate()
    assert any(line.startswith("true false false 22 false") for line in output), output
    assert output[-2] == "false true false 0 false 1 0 0", output
    assert str(first.pid) in log, log
    assert modem.output.count(SENT) == 1


def a_full_disk(programs):
    if not can_mount():
        print("a full disk: SKIPPED, since this user cannot mount a file system")
        return
    disk = TinyDisk(programs.folder + "/state")

    def begin(number, text):
        file = f"{programs.folder}/job{number}"
        with open(file + ".new", "w", encoding="ascii") as job_file:
            job_file.write(text)
        os.rename(file + ".new", file)

    long_text = "the disk is full " * 170  # so long that the files have no room for it anywhere
    with SimulatedModem(corvane) as modem:
        process = programs.start(MANY_JOBS, "--modem", "1=" + modem.device, "--", programs.folder, wrap=disk.command)
        begin(1, "before")
        assert read_until(process, "false true ")[-1] == "false true false 0 true 1 0 "
        disk.fill(process)
        begin(2, long_text)
        lines = read_until(process, "false true ")
        assert lines[-1] == "false true false 0 false 1 0 ", lines
        failures = [line for line in lines if line.startswith("true false false 22 false ")]
        assert failures and all("messages.db" in line for line in failures), lines
        assert not any(line.split()[2] == "true" or line.split()[4] == "true" for line in lines[1:]), lines
        disk.make_room()
        wait_for(lambda: disk.states(corvane) == ["sent", "sent"], "the second message in the store")
        begin(3, "after")
        assert read_until(process, "false true ")[-1] == "false true false 0 true 1 0 "
        assert disk.states(corvane) == ["sent"] * 3, disk.states(corvane)
        process.send_signal(signal.SIGINT)
        programs.finish(process)
        modem.end()
    sent = [line.split(": ", 1)[1] for line in modem.output.splitlines() if line.startswith("sent to ")]
    assert sent == ["before", long_text, "after"], sent


def a_check_of_a_program_makes_no_file(programs):
    file = programs.folder + "/both.lua"
    with open(file, "w", encoding="ascii") as text:
        text.write("local out = SMS_OUTBOX.new { Port = 1, Receiver = '110', Text = 'x', Execute = true }\n"
                   "local inbox = SMS_INBOX.new { Port = 1, Enable = true }\n"
                   "function cycle() out() inbox() end\n")
    unset = {name: value for name, value in os.environ.items() if name not in ("STATE_DIRECTORY", "XDG_STATE_HOME")}
    for environment in ({"STATE_DIRECTORY": programs.folder + "/state"}, {"XDG_STATE_HOME": programs.folder + "/xdg"},
                        {"HOME": programs.folder}):
        result = subprocess.run([corvane, "run", "--check", "--addin", addin, "--modem", "1=tcp:127.0.0.1:9", file],
                                capture_output=True, text=True, check=False, env={**unset, **environment})
        assert result.returncode == 0 and result.stdout.endswith(": ok\n"), result
        assert os.listdir(programs.folder) == ["both.lua"], (environment, os.listdir(programs.folder))


def the_modem_restarts_before_it_confirms(programs):
    with SimulatedModem(corvane, "--network-delay", "3s", "--trace") as modem:
        process = programs.start(job(), "--modem", "1=" + modem.device)
        wait_for(lambda: programs.rows("id") and programs.rows("in_transfer") == [(1,)], "an attempt")
        time.sleep(1)  # past the prompt
        modem.do("restart")
        modem.do("delay 0 network")
        output, _ = programs.finish(process)
        modem.end()
    assert output[-2] == "false true false 0 true 1 0 0", output
    assert "+15550101234" in output[-1] and "not known" in output[-1], output
    assert 1 <= modem.output.count(SENT) <= 2
    assert programs.rows("unknown_ends, attempts") == [(1, 2)]


def the_program_ends_at_once(programs):
    with SimulatedModem(corvane) as modem:
        modem.do("mute 10min")
        process = programs.start(job(), "--modem", "1=" + modem.device)
        read_until(process, "true false false 0 true")
        begin = time.monotonic()
        process.send_signal(signal.SIGINT)
        _, log = process.communicate(timeout=PATIENCE)
        took = time.monotonic() - begin
    assert took < 2, f"{took} s"  # with a sanitizer, on a busy machine
    assert "1 message waits" in log and programs.folder in log, log
    assert programs.rows("state, in_transfer") == [(0, 0)], "an attempt that never happened is marked"


SCENARIOS = [*(killed_at(time) for time in (0, 30, 60, 100, 150, 200, 250, 300, 350, 400, 500, 700)),
             without_coverage, a_dead_modem, plugged_in_later, a_missing_modem, a_port_that_nobody_configured,
             a_second_program_with_one_store, a_full_disk, a_check_of_a_program_makes_no_file, the_modem_restarts_before_it_confirms,
             the_program_ends_at_once]
failed = []
at_once = threading.Semaphore(5)


def carry_out(scenario):
    with at_once, tempfile.TemporaryDirectory() as folder:
        try:
            scenario(Programs(corvane, addin, folder))
        except BaseException:  # pylint: disable=broad-except
            traceback.print_exc()
            failed.append(scenario.__name__)


only = os.environ.get("ONLY", "")
threads = [threading.Thread(target=carry_out, args=(scenario,)) for scenario in SCENARIOS if only in scenario.__name__]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
assert not failed, failed
