# SPDX-License-Identifier: MIT
"""What goes wrong around a program that is killed and restarted (field_soak.py), in addition to faults.py."""
import os
import signal
import sys
import time

import faults
import field_accounts
from processes import await_state

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "end_to_end"))
from bench_client import Closed, WebSocket


class Watcher(faults.Troublemaker):
    """A client of the bench, which looks at everything for a while, or stops reading, and goes without a word."""

    pause = 0.5

    def __init__(self, soak):
        super().__init__(soak)
        self.count = 0

    def strike(self):
        end = time.monotonic() + self.random.uniform(1, 20)
        try:
            with WebSocket(self.soak.folder + "/sockets/field_soak.sock") as bench:
                bench.send(type="subscribe", topics=["variables", "cycle", "modem", "messages", "log"])
                reads = not self.count or self.random.random() < 0.7
                while time.monotonic() < end and not self.stopping.wait(0 if reads else 0.5):
                    self.count += reads and bench.receive() is not None
        except (Closed, OSError):
            pass  # the program has ended, or is just starting


class MailOutage(faults.Troublemaker):
    pause = 15

    def strike(self):
        start, server = time.monotonic(), self.random.choice([self.soak.mail, self.soak.tls])
        server.go_away()
        self.stopping.wait(self.random.uniform(0.1, 5))
        server.listen()
        self.note("mail server away", start, time.monotonic())


class ModbusOutage(faults.Troublemaker):
    pause = 10

    def strike(self):
        start = time.monotonic()
        self.soak.modbus.go_away(drop=self.random.random() < 0.5)
        self.stopping.wait(self.random.uniform(0.1, 4))
        self.soak.modbus.listen()
        self.note("Modbus server away", start, time.monotonic())


class ClockSteps(faults.Troublemaker):
    """Sets the program's clock, forward and back. In the first half of the run it is right, for the schedule."""

    def __init__(self, soak):
        super().__init__(soak)
        self.pause = max(5, soak.seconds / 60)

    def run(self):
        self.stopping.wait(self.soak.seconds / 2)
        super().run()

    def strike(self):
        self.soak.first_step = self.soak.first_step or time.time()
        self.soak.set_clock(self.random.choice([0, self.random.randint(-3000, 3000), self.random.randint(-10, 10)]))
        self.note_now("clock set")


class FullDisk(faults.Troublemaker):
    """Leaves the program's store no room for a while. Mostly the program lives through it; now and then it is killed."""

    def __init__(self, soak):
        super().__init__(soak)
        self.pause = max(10, soak.seconds / 60)

    def strike(self):
        with self.soak.quiet:
            start = time.monotonic()
            self.fill()
            self.stopping.wait(self.random.uniform(0.5, 5))
            # What is then lost or doubled, no store can name; a short run has no need of such excuses.
            killed = self.soak.seconds > 60 and self.random.random() < 0.25
            if killed:
                self.soak.program.process.kill()
                self.soak.bury(signal.SIGKILL)
            os.remove(self.filling())
            if killed:
                self.soak.start()
            else:
                self.catch_up()
            self.note(field_accounts.FULL_AND_KILLED if killed else field_accounts.FULL, start, time.monotonic())

    def filling(self):
        return self.soak.state + "/filling"

    def fill(self):
        with open(self.filling(), "wb", buffering=0) as file:
            for size in (1 << 20, 4096):
                try:
                    while file.write(bytes(size)) == size:
                        pass
                except OSError:
                    pass  # there is no room for so much

    def catch_up(self):
        """Waits until nothing of this run is only in memory."""
        await_state("the orders to be stored", self.all_are_settled)
        # The answer to a request reaches the disk after all that was written before.
        self.soak.limit()

    def all_are_settled(self):
        orders = field_accounts.orders_of(self.soak.program.output)
        return all(order.settled for name, numbers in orders.items() if field_accounts.is_durable(name)
                   for order in numbers.values())
