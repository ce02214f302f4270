# SPDX-License-Identifier: MIT
"""What the bench costs a real `corvane run`, and how soon a browser shows its page. Used by report.py."""
import contextlib
import os
import re
import selectors
import signal
import threading
import time

from bench_client import PATIENCE, Program, WebSocket

TIMERS = """
timers = {}
for i = 1, BLOCKS do timers[i] = TON.new { IN = true, PT = 1e9 } end
function cycle() for i = 1, #timers do timers[i]() end end
"""
TOPICS = ["variables", "cycle", "modem", "messages", "log"]
UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}


class Readers:
    """Clients of all topics that read what they get, in a thread of their own, and count it."""

    def __init__(self, program, count):
        self.octets = 0
        self.stopping = False
        self.selector = selectors.DefaultSelector()
        self.clients = [WebSocket(program.port) for _ in range(count)]
        for client in self.clients:
            client.send(type="subscribe", topics=TOPICS)
            self.selector.register(client.connection, selectors.EVENT_READ)
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self):
        while not self.stopping:
            for key, _ in self.selector.select(0.1):
                self.octets += len(key.fileobj.recv(1 << 20))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stopping = True
        self.thread.join()
        for client in self.clients:
            client.close()


def processor_time(program):
    """Of all threads, and of the one that runs the cycles, in seconds."""
    folder = f"/proc/{program.process.pid}/task"
    seconds = {}
    for task in os.listdir(folder):
        with open(f"{folder}/{task}/schedstat", encoding="ascii") as file:
            seconds[task] = int(file.read().split()[0]) / 1e9
    return sum(seconds.values()), seconds[str(program.process.pid)]


def usage(program, seconds):
    """Shares of a core that the program uses now: all of it, and its cycles."""
    begin, before = time.monotonic(), processor_time(program)
    time.sleep(seconds)
    elapsed, after = time.monotonic() - begin, processor_time(program)
    return [(b - a) / elapsed for a, b in zip(before, after)]


def cost_of_a_browser(corvane):
    """Shares of a core that a client of all topics adds to a program with 500 blocks, whose values change in each
    cycle of 10 ms: the whole program, and its cycles; and the octets that the client has received a second."""
    seconds = 10
    with Program(corvane, TIMERS.replace("BLOCKS", "500"), name="timers") as program:
        time.sleep(1)
        alone = usage(program, seconds)
        with Readers(program, 1) as readers:
            time.sleep(1)
            before = readers.octets
            watched = usage(program, seconds)
            rate = (readers.octets - before) / seconds
    return watched[0] - alone[0], watched[1] - alone[1], rate


def lateness(corvane, clients):
    """The 99th percentile of how late the cycles of 1 ms of a program with 50 blocks start, in seconds."""
    with Program(corvane, TIMERS.replace("BLOCKS", "50"), cycle="1ms", name="timers") as program:
        with Readers(program, clients) if clients else contextlib.nullcontext():
            time.sleep(10)
            program.process.send_signal(signal.SIGINT)
            program.process.wait(PATIENCE)
        number, unit = re.search(r"started late p99 ([0-9.]+)(ns|us|ms|s) ", program.log()).groups()
    return float(number) * UNITS[unit]


def first_paints(corvane, loads):
    """Seconds from the address to the first picture of the page, for each load; the browser's cache is empty."""
    from bench_browser import Browser  # needs chromium
    browser = Browser()
    paints = []
    try:
        with Program(corvane, TIMERS.replace("BLOCKS", "500"), name="timers") as program:
            for _ in range(loads):
                browser.command("Network.enable")
                browser.command("Network.clearBrowserCache")
                with browser.page(program):
                    entries = browser.driver.execute_script(
                        "return performance.getEntriesByType('paint').map(e => [e.name, e.startTime])")
                    paints.append(dict(entries)["first-contentful-paint"] / 1e3)
                browser.driver.get("about:blank")
    finally:
        browser.driver.quit()
    return paints
