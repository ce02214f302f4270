#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""modem_clients.py CORVANE: programs written by others work with the simulated modem."""
import shutil
import sys

sys.dont_write_bytecode = True
from simulated_modem import SimulatedModem, run

corvane, = sys.argv[1:]
for program in ("gnokii", "gammu"):
    assert shutil.which(program), f"{program} is missing: packaging/packages.sh test"

TEXT = "Pump 3 has stopped"
LONG = "x" * 200


def gnokii(modem, *words, given=""):
    return run("gnokii", "--config", modem.folder.name + "/gnokii.conf", *words, given=given)


def gammu(modem, *words):
    return run("gammu", "-c", modem.folder.name + "/gammu.conf", *words)


with SimulatedModem(corvane, "--time", "2026-01-31T12:00:00+01:00") as modem:
    with open(modem.folder.name + "/gnokii.conf", "w", encoding="ascii") as file:
        file.write(f"[global]\nmodel = AT\nport = {modem.device}\nconnection = serial\n"
                   "use_locking = no\nserial_baudrate = 115200\n")
    modem.do(f"receive +31641600986 {TEXT}")
    modem.await_output(TEXT)

    identity = gnokii(modem, "--identify")
    for word in ("490154203237518", "Corvane", "Simulator", "Revision 1"):
        assert word in identity, identity
    listed = gnokii(modem, "--getsms", "SM", "1", "end")
    assert TEXT in listed and "+31641600986" in listed and "31/01/2026 12:00:00" in listed, listed
    sent = gnokii(modem, "--sendsms", "+15550101234", given="hello")
    assert "Send succeeded with reference 1" in sent, sent
    modem.await_output("sent to +15550101234: hello\n")
    gnokii(modem, "--deletesms", "SM", "1")
    modem.await_output("deleted place 1\n")

with SimulatedModem(corvane) as modem:
    with open(modem.folder.name + "/gammu.conf", "w", encoding="ascii") as file:
        file.write(f"[gammu]\ndevice = {modem.device}\nconnection = at\nmodel = at\n")
    modem.do("receive +31641600986 Grüße €")
    modem.await_output("Grüße €")

    identity = gammu(modem, "identify")
    for word in ("490154203237518", "Corvane", "310150123456789"):
        assert word in identity, identity
    listed = gammu(modem, "getallsms")
    assert "Grüße €" in listed and "+31641600986" in listed, listed
    gammu(modem, "sendsms", "TEXT", "+15550101234", "-text", LONG, "-len", "400")
    modem.await_output(f"sent to +15550101234 in 2 parts: {LONG}\n")
    gammu(modem, "deletesms", "1", "1")
    modem.await_output("deleted place 1\n")
    modem.do("fail 500 CMGS")
    gammu_failed = False
    try:
        gammu(modem, "sendsms", "TEXT", "+15550101234", "-text", "lost")
    except AssertionError:
        gammu_failed = True
    assert gammu_failed, "gammu treated +CMS ERROR: 500 as success"
    modem.await_output("refused: message to +15550101234: +CMS ERROR: 500\n")
    modem.end()
