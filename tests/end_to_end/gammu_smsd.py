#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""gammu_smsd.py CORVANE: a daemon written by others sends and receives with the simulated modem."""
import os
import shutil
import subprocess
import sys
import time

sys.dont_write_bytecode = True
from simulated_modem import PATIENCE, SimulatedModem, run

corvane, = sys.argv[1:]
for program in ("gammu-smsd", "gammu-smsd-inject"):
    assert shutil.which(program), f"{program} is missing: packaging/packages.sh test"

LONG = "Pump 3 has stopped. " * 12


def configure(modem):
    folder = modem.folder.name
    lines = ["[gammu]", f"device = {modem.device}", "connection = at", "model = at",
             "[smsd]", "service = files", f"logfile = {folder}/log", "debuglevel = 1",
             "loopsleep = 1", "commtimeout = 2", "checksecurity = 0", "deliveryreport = log"]
    for box in ("inbox", "outbox", "sentsms", "errorsms"):
        os.mkdir(f"{folder}/{box}")
        lines.append(f"{box}path = {folder}/{box}/")
    with open(folder + "/smsd.conf", "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")
    return folder + "/smsd.conf"


def received(modem):
    folder = modem.folder.name + "/inbox/"
    texts = []
    for name in sorted(os.listdir(folder)):
        with open(folder + name, encoding="utf-8") as file:
            texts.append(file.read())
    return texts


def await_received(modem, text):
    end = time.monotonic() + PATIENCE
    while not any(text in one for one in received(modem)):
        assert time.monotonic() < end, (text, received(modem), read_log(modem))
        time.sleep(0.1)


def read_log(modem):
    with open(modem.folder.name + "/log", encoding="utf-8") as file:
        return file.read()


with SimulatedModem(corvane) as modem:
    config = configure(modem)
    modem.do("receive +31641600986 before the start")
    modem.await_output("before the start")
    daemon = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "gammu-smsd", "-c", config])
    try:
        await_received(modem, "before the start")
        modem.do("receive +31641600986 Grüße €")
        await_received(modem, "Grüße €")
        modem.do(f"parts 2,1 +31641600986 {LONG}")
        await_received(modem, "Pump 3 has stopped.")

        modem.do("report after 1s")
        run("gammu-smsd-inject", "-c", config, "TEXT", "+15550101234", "-text", "hello", "-report")
        modem.await_output("sent to +15550101234: hello\n")
        modem.await_output("status report 0 on message 1 to +15550101234")
        run("gammu-smsd-inject", "-c", config, "TEXT", "+15550101234", "-text", LONG, "-len", "400")
        modem.await_output(f"sent to +15550101234 in 2 parts: {LONG}\n")
    finally:
        daemon.terminate()
        daemon.wait(PATIENCE)
    modem.end()
