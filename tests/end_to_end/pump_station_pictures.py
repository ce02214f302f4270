#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pump_station_pictures.py PROJECT CORVANE: the pump station as its page and `corvane watch` show it, in good and in bad
times. With a folder BENCH_PICTURES it saves the pictures that README shows, which takes a minute."""
import html
import os
import re
import subprocess
import sys
import tempfile
import time
import urllib.parse

sys.dont_write_bytecode = True
from bench_browser import Browser
from bench_client import wait_for
from simulated_modem import SimulatedModem
from terminal import Terminal

project, corvane = sys.argv[1:]
ANNA = "+15550101234"
TAKES_PICTURES = "BENCH_PICTURES" in os.environ
CYCLE = "100ms" if TAKES_PICTURES else "10ms"
COLUMNS, LINES = 110, 34
PALETTE = {"default": None, "black": "#1d232b", "red": "#e5534b", "green": "#57ab5a", "brown": "#c69026",
           "blue": "#539bf5", "magenta": "#b083f0", "cyan": "#39c5cf", "white": "#cdd9e5"}
INK, PAPER = "#cdd9e5", "#1d232b"


def colour(name, default):
    if re.fullmatch("[0-9a-f]{6}", name):
        return "#" + name
    return PALETTE.get(name.removeprefix("bright")) or default


def drawn(cell):
    ink, paper = colour(cell.fg, INK), colour(cell.bg, PAPER)
    if cell.reverse:
        ink, paper = paper, ink
    weight = "bold" if cell.bold else "normal"
    return f'<span style="color:{ink};background:{paper};font-weight:{weight}">{html.escape(cell.data)}</span>'


def drawing_of(screen):
    """The cells of a terminal as a page."""
    rows = ["".join(drawn(screen.buffer[y][x]) for x in range(screen.columns)) for y in range(screen.lines)]
    return ('<meta charset="utf-8"><body style="margin:0;background:' + PAPER + '"><pre style="margin:12px;'
            'display:inline-block;font:14px/18px DejaVu Sans Mono,monospace">' + "\n".join(rows) + "</pre>")


class PumpStation:
    """The example, with its page and its socket, until the end of the test."""

    def __init__(self, folder, device, mail_port):
        self.folder, self.log = folder, folder + "/log"
        self.variables = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": folder,
                          "RUNTIME_DIRECTORY": folder + "/run", "STATE_DIRECTORY": folder + "/state"}
        with open(self.log, "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", corvane, "run", project + "/examples/pump_station.lua", "--cycle",
                 CYCLE, "--modem", f"1={device}", "--web", "0", "--", "127.0.0.1", mail_port, "plc", "s3cret",
                 "pump3@plant.example", "operator@plant.example", "stay"],
                stdout=log, stderr=log, cwd=folder, env=self.variables)
        self.port = self.awaited(r"bench: http://127.0.0.1:(\d+)/")[1]

    def awaited(self, pattern):
        def found():
            with open(self.log, encoding="utf-8") as file:
                return re.search(pattern, file.read())
        return wait_for(found, pattern, 60)

    def end(self):
        self.process.terminate()
        assert self.process.wait(60) == 0, self.process.returncode


def cells(browser, path):
    return browser.run("""const row = [...document.querySelectorAll(".rows [role=row]")].find(
        (row) => row.path === arguments[0]);
        return row && [...row.querySelectorAll("[role=gridcell]")].map((cell) => cell.textContent)""", path)


def plot(browser, path):
    field = browser.one("#filter")
    field.clear()
    field.send_keys(path)
    browser.wait(lambda: cells(browser, path), f"the row of {path}")
    browser.run("""[...document.querySelectorAll(".rows [role=row]")].find((row) => row.path === arguments[0])
        .querySelector("button").click()""", path)


def the_page_shows_the_alarm(browser, station, modem):
    with browser.page(station):
        for path in ("station.level", "station.pump_2", "alarm_sms.Waiting"):
            plot(browser, path)
        browser.one("#trend-span").send_keys("minute")
        station.awaited("ALARM: 401 cm")
        modem.await_output(f"sent to {ANNA}: ТРЕВОГА!")
        modem.do(f"receive {ANNA} ACK")
        station.awaited("the alarm is over")
        browser.one("#filter").clear()
        browser.one("#filter").send_keys("alarm")
        browser.wait(lambda: "over" in (cells(browser, "station.alarm") or ["", ""])[1], "the end of the alarm")
        end = time.monotonic() + (35 if TAKES_PICTURES else 0)
        browser.wait(lambda: time.monotonic() >= end, "a trend of a minute", 60)
        browser.picture("pump_station")


def the_terminal_shows_it_too(browser, station):
    terminal = Terminal([corvane, "watch", "pump_station"], station.variables, term="xterm-256color", lines=LINES,
                        columns=COLUMNS)
    terminal.wait_for("SMS_INBOX", "SMS_OUTBOX", "messages are kept in")
    browser.driver.get("data:text/html;charset=utf-8," + urllib.parse.quote(drawing_of(terminal.screen)))
    size = browser.run("const box = document.querySelector('pre').getBoundingClientRect();"
                       "return [box.width, box.height]")
    browser.look([int(side) + 24 for side in size])
    browser.picture("terminal")
    terminal.press(b"q")
    assert terminal.wait_for_end() == 0


with tempfile.TemporaryDirectory() as folder, Browser() as browser, \
        SimulatedModem(corvane, "--network-delay", "2s" if TAKES_PICTURES else "0s") as modem:
    mail = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "/usr/bin/python3", project + "/examples/mail_sink.py",
                             folder + "/mails"], stdout=subprocess.PIPE, text=True)
    station = PumpStation(folder, modem.device, mail.stdout.readline().split()[1])
    the_page_shows_the_alarm(browser, station, modem)
    the_terminal_shows_it_too(browser, station)
    station.end()
    mail.terminate()
print("page and terminal show the pump station")
