# SPDX-License-Identifier: MIT
"""What goes wrong: modem, mail server, commands and descriptors, each with its own thread and random
numbers. Each fault is noted with the time in which it may have had an effect."""
import glob
import os
import random
import resource
import signal
import time

import faulty_mail_server
import watch

# The faults that every run of sufficient length meets.
KINDS = ("unplugged", "muted", "output held", "garbage", "restarted", "unsolicited line",
         "CMGS refused", "CMGL refused", "CMGD refused", "no network", "another network delay",
         "mail server down", "no descriptors",
         *(f"mail: {fault}" for fault in faulty_mail_server.QUICK_FAULTS))


class Troublemaker:
    """A thread that calls `strike` again and again, until `stopping`."""

    pause = 0  # seconds from one fault to the next, on average

    def __init__(self, soak):
        self.soak, self.stopping, self.note = soak, soak.stopping, soak.note
        self.random = random.Random(f"{soak.seed} {type(self).__name__}")

    def run(self):
        while not self.stopping.wait(self.random.uniform(0.5, 1.5) * self.pause):
            self.strike()

    def note_now(self, kind, times=1):
        now = time.monotonic()
        self.note(kind, now, now, times)


class ModemFaults(Troublemaker):
    def __init__(self, soak):
        super().__init__(soak)
        self.pause = max(1.5, soak.seconds / 500)  # the store limits what faults may leave there
        self.turns = []

    def strike(self):
        if not self.turns:  # each kind gets its turn, however short the run
            kinds = [self.unplug, self.mute, self.hold, self.garbage, self.restart,
                     self.unsolicited, self.refuse_message, self.refuse_list,
                     self.refuse_deletion, self.no_network, self.slow_network]
            self.turns = self.random.sample(kinds, len(kinds))
        self.turns.pop()()

    def order(self, line):
        self.soak.modem.say(line)

    def at_once(self, kind, line, times=1):
        self.note_now(kind, times)
        self.order(line)

    def for_a_while(self, kind, command, most):
        seconds = self.random.uniform(0.1, most)
        start = time.monotonic()
        self.order(f"{command} {int(seconds * 1000)}ms")
        self.stopping.wait(seconds)
        self.note(kind, start, start + seconds)

    def unplug(self):
        start, lines = time.monotonic(), len(self.soak.modem.output)
        self.order(f"unplug {self.random.randint(50, 3000)}ms")
        self.soak.modem.await_line("plugged in again", lines)
        self.note("unplugged", start, time.monotonic())

    def mute(self):
        self.for_a_while("muted", "mute", 3)

    def hold(self):
        self.for_a_while("output held", "hold", 4)

    def garbage(self):
        """It contains no prompt, which a reader could not tell from a real one. So it excuses nothing."""
        octets = self.random.randbytes(self.random.randint(1, 300)).replace(b">", b"")
        self.at_once("garbage", "unsolicited " + "".join(f"\\x{octet:02X}" for octet in octets))

    def restart(self):
        self.at_once("restarted", "restart")

    def unsolicited(self):
        lines = ["RING", "+CREG: 1", "^RSSI: 17", '+CMTI: "SM",3']
        self.at_once("unsolicited line", "unsolicited " + self.random.choice(lines))

    def refuse_message(self):
        error, times = self.random.choice([38, 331, 500]), self.random.randint(1, 5)
        self.at_once("CMGS refused", f"fail {error} CMGS {times}", times)

    def refuse_list(self):
        self.at_once("CMGL refused", f"fail {self.random.choice(['314', '320', 'error'])} CMGL")

    def refuse_deletion(self):
        self.at_once("CMGD refused", "fail 320 CMGD")

    def no_network(self):
        start = time.monotonic()
        self.order("network off")
        self.stopping.wait(self.random.uniform(0.1, 2))
        self.order("network on")
        self.note("no network", start, time.monotonic())

    def slow_network(self):
        self.at_once("another network delay", f"delay {self.random.randint(0, 100)}ms")


class MailFaults(Troublemaker):
    def __init__(self, soak):
        super().__init__(soak)
        self.pause = max(1, soak.seconds / 900)  # most of them cost a descriptor for good
        self.turns = []
        self.next_slow = 0

    def strike(self):
        if not self.turns:
            self.turns = [*faulty_mail_server.QUICK_FAULTS, *[None] * 3]
            self.random.shuffle(self.turns)
        if time.monotonic() < self.next_slow:
            fault = self.turns.pop()
        else:
            fault = self.random.choice(faulty_mail_server.SLOW_FAULTS)
            self.next_slow = time.monotonic() + max(30, self.soak.seconds / 40)
        if fault is None:
            self.go_away()
        else:
            self.soak.server.next_fault = fault
            self.note_now(f"mail: {fault}")

    def go_away(self):
        start = time.monotonic()
        self.soak.server.go_away()
        self.stopping.wait(self.random.uniform(0.1, 1))
        self.soak.server.listen()
        self.note("mail server down", start, time.monotonic())


class DescriptorThief(Troublemaker):
    """Leaves the program without a free descriptor for a while."""

    def __init__(self, soak):
        super().__init__(soak)
        self.pause = max(5, soak.seconds / 200)

    def strike(self):
        pid, start = self.soak.program.pid, time.monotonic()
        taken = watch.descriptors_of(pid)
        free = next(number for number in range(len(taken) + 1) if number not in taken)
        before = resource.prlimit(pid, resource.RLIMIT_NOFILE)
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (free, before[1]))
        self.stopping.wait(self.random.uniform(0.2, 1.5))
        resource.prlimit(pid, resource.RLIMIT_NOFILE, before)
        self.note("no descriptors", start, time.monotonic())


class Killer(Troublemaker):
    """Kills each command that asks for it by leaving its process number. It runs as long as the program,
    which waits for it."""

    pause = 0.02

    def __init__(self, soak):
        super().__init__(soak)
        self.stopping = soak.over
        self.signals = {}

    def strike(self):
        for path in glob.glob(self.soak.folder + "/victim.*[0-9]"):
            with open(path, encoding="ascii") as file:
                pid = int(file.read())
            os.remove(path)
            number = int(path.rpartition(".")[2])
            self.signals[number] = self.random.choice(
                [signal.SIGKILL, signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGUSR1])
            os.kill(pid, self.signals[number])
