# SPDX-License-Identifier: MIT
"""The line between a runtime and a modem, which a test controls: TCP to the one, a terminal to the other."""
import os
import select
import socket
import threading
import time
import tty


class LineProxy:
    """Passes octets on, and does `fault` after so many of them, both directions counted together:
    "cut" closes the line, which can then be opened again; "stall" passes nothing on for `stall`
    seconds; a function is called once, and the line goes on. After the fault the line is good.
    With `baud`, each direction takes the time of a line of this rate."""

    def __init__(self, device, fault="cut", after=None, stall=1.0, baud=None):
        self.device, self.fault, self.after, self.stall, self.baud = device, fault, after, stall, baud
        self.passed = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.target = "tcp:127.0.0.1:%d" % self.listener.getsockname()[1]
        self.ending = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ending.set()
        self.thread.join()
        self.listener.close()

    def wait(self, *sources):
        """The sources that have something to read; none once the test ends."""
        while not self.ending.is_set():
            ready = select.select(sources, [], [], 0.1)[0]
            if ready:
                return ready
        return []

    def run(self):
        while self.wait(self.listener):
            client = self.listener.accept()[0]
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            modem = os.open(self.device, os.O_RDWR | os.O_NOCTTY | os.O_CLOEXEC)
            tty.setraw(modem)
            try:
                self.carry(client.fileno(), modem)
            except OSError:
                pass  # one end is gone
            os.close(modem)
            client.close()

    def carry(self, client, modem):
        while ready := self.wait(client, modem):
            for source in ready:
                octets = os.read(source, 256)
                if not octets or not self.pass_on(octets, modem if source == client else client):
                    return

    def pass_on(self, octets, to):
        """False: the line is cut."""
        while octets:
            number = len(octets) if self.after is None else min(len(octets), self.after - self.passed)
            self.write(octets[:number], to)
            octets = octets[number:]
            if self.passed != self.after:
                continue
            self.after = None
            if self.fault == "cut":
                return False
            if self.fault == "stall":
                self.ending.wait(self.stall)
            else:
                self.fault()
        return True

    def write(self, octets, to):
        self.passed += len(octets)
        if self.baud:
            time.sleep(len(octets) * 10 / self.baud)  # the pace of the line is what is simulated
        while octets:
            octets = octets[os.write(to, octets):]
