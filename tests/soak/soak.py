#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs all five blocks at full speed, for a given time, while modem, mail server and system fail at
random. At the end the books must balance (accounts.py), and memory, descriptors, threads and
processes must be what they were."""
import collections
import ctypes
import os
import random
import re
import resource
import shutil
import tempfile
import threading
import time

import accounts
import excuses
import faults
import faulty_mail_server
import harness
import message_accounts
import messages
import watch
from processes import PATIENCE, Process, Violated, await_state

HERE = os.path.dirname(os.path.abspath(__file__))
PR_SET_CHILD_SUBREAPER = 36  # prctl(2): orphaned commands become children of this process
MEGABYTE = 1 << 20
ATTACHMENT_EVERY = 10  # as soak.lua does
MISSING_EVERY = 60  # this attachment does not exist
DESCRIPTORS = 8192  # enough for those that failed mails keep


def more_descriptors():
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    wanted = DESCRIPTORS if most == resource.RLIM_INFINITY else min(most, DESCRIPTORS)
    resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, most))


class Soak(harness.Harness):
    def __init__(self, options, folder):
        super().__init__(options, folder)
        self.most_growth = options.growth * MEGABYTE
        self.over = threading.Event()
        attachment = random.Random(self.seed).randbytes(200_000)
        with open(folder + "/attachment.bin", "wb") as file:
            file.write(attachment)
        self.server = faulty_mail_server.FaultyMailServer(attachment)
        self.modem = Process(
            self.corvane, "modem", "--link", folder + "/modem", "--store-size", "255",
            "--network-delay", "20ms", "--baud", "115200", "--seed", str(self.seed))
        self.modem.await_line("ready ")
        self.program = Process(
            self.corvane, "run", HERE + "/soak.lua", "--cycle", "0",
            "--modem", f"1={folder}/modem,patience={excuses.PATIENCE}s,poll=1ms",
            "--", folder, str(self.server.port), str(self.seed), preexec_fn=more_descriptors,
            env={**os.environ,
                 "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":" + excuses.SANITIZER})

    def run(self):
        self.program.await_line("ready$")
        self.monitor = watch.Monitor(self.program, self.note, self.stopping)
        self.feeder = messages.Feeder(self.program, self.modem, self.stopping)
        self.killer = faults.Killer(self)
        self.thread(self.killer.run)
        self.leave("go")
        self.thread(self.reap)
        threads = [self.thread(each.run) for each in (
            self.monitor, self.feeder, faults.ModemFaults(self), faults.MailFaults(self),
            faults.DescriptorThief(self))]
        end = time.monotonic() + self.seconds
        while time.monotonic() < end and not self.stopping.wait(0.5):
            if self.program.process.poll() is not None:
                raise Violated("the program has ended by itself")
        self.stopping.set()
        for thread in threads:
            thread.join(PATIENCE)
        if self.violations:
            raise Violated(self.violations[0])

    def finish(self):
        self.leave("finish")
        self.finished = {name: int(value) for name, value in re.findall(
            r"(\w+)=(\d+)", self.program.await_line("finished "))}
        self.drain()
        self.monitor.look()
        self.settle()
        self.leave("quit")
        self.status = self.program.end()
        self.over.set()
        self.modem.say("quit")
        self.modem_status = self.modem.end()
        await_state("the background commands to end", self.orphans_are_gone)
        self.server.end()

    def drain(self):
        """Sends two last messages. When the second is delivered, all that came before it has been
        listed, and the deletions after these lists are over: it was listed after them."""
        for _ in range(2):
            self.last = self.feeder.give()
            await_state("the last messages", self.last_is_delivered)

    def last_is_delivered(self):
        self.feeder.look()
        return self.last in self.feeder.delivered

    def settle(self):
        """Waits until what is under way has ended: a shell, the opening of the modem."""
        end = time.monotonic() + PATIENCE
        while True:
            self.descriptors = watch.descriptors_of(self.program.pid)
            self.children = watch.children_of(self.program.pid)
            self.connections = len(watch.without_attachments(self.descriptors))
            settled = self.connections == self.monitor.expected_descriptors() and not self.children
            if settled or time.monotonic() > end:
                return
            time.sleep(0.05)

    def reap(self):
        """Collects the background commands that have ended, which would fill the process table."""
        while not self.over.wait(0.05):
            self.reap_ended()

    def reap_ended(self):
        own = (self.program.pid, self.modem.pid)  # these are waited for elsewhere
        look = os.WEXITED | os.WNOHANG | os.WNOWAIT
        try:
            while (ended := os.waitid(os.P_ALL, 0, look)) and ended.si_pid not in own:
                os.waitpid(ended.si_pid, 0)
        except ChildProcessError:
            pass  # there are none

    def orphans_are_gone(self):
        self.reap_ended()
        return not watch.children_of(os.getpid())

    def judge(self):
        """Returns complaints, and figures by name."""
        program, modem = self.program.output, self.modem.output
        complaints, figures = self.judge_process(), {}
        for found, numbers in (
                message_accounts.check_sent(modem, program, self.faults,
                                            messages.parts_of, messages.text_of),
                message_accounts.check_received(modem, program, self.faults, self.feeder.wanted,
                                                self.last),
                accounts.check_mails(program, self.faults, self.server.records,
                                     lambda n: {404} if n % MISSING_EVERY == 0 else set(),
                                     lambda n: n % ATTACHMENT_EVERY == 0),
                accounts.check_commands(program, self.faults, self.started(),
                                        self.finished["starts"], self.killer.signals)):
            complaints += found
            figures |= numbers
        figures |= {"commands with a result": self.finished["runs"] - self.finished["refused"],
                    "of these killed": len(self.killer.signals),
                    "background commands": self.finished["starts"]}
        failed = sum(figures["mails failed, by code"].values())
        complaints += accounts.check_log(self.program.log, program, self.faults, failed)
        complaints += accounts.check_enough(figures, self.faults, self.server.records,
                                            faults.KINDS, self.seconds)
        return complaints, figures

    def judge_process(self):
        complaints = accounts.check_files(
            self.program.output, self.server.records,
            lambda number: number % ATTACHMENT_EVERY == 0 and number % MISSING_EVERY != 0,
            len(self.descriptors) - self.connections)
        if self.connections != self.monitor.expected_descriptors():
            complaints.append(f"{self.connections} descriptors at the end, not "
                              f"{self.monitor.expected_descriptors()}: {self.descriptors}")
        if self.children:
            complaints.append(f"children of the idle program: {self.children}")
        if self.status != 0 or self.modem_status != 0:
            complaints.append(f"exit status {self.status}, of the modem {self.modem_status}")
        early, late = self.monitor.memory()
        if late - early > self.most_growth:
            complaints.append(f"the memory has grown from {early} to {late} bytes")
        return complaints

    def started(self):
        with open(self.folder + "/started", encoding="ascii") as file:
            return [int(line) for line in file]

    def show(self, figures):
        early, late = (f"{size / MEGABYTE:.1f} MB" for size in self.monitor.memory())
        kinds = collections.Counter(fault.kind for fault in self.faults)
        rows = {
            "cycles": self.finished["cycles"], **figures,
            "commands refused for lack of a descriptor": self.finished["refused"],
            "memory after the warm-up, at the end": f"{early}, {late}",
            "descriptors at the start": self.monitor.descriptors,
            "connections and files that failed mails keep":
                f"{self.monitor.kept}, {len(self.descriptors) - self.connections}",
            "descriptors at the end": len(self.descriptors),
            "threads": self.monitor.threads,
            "faults": sum(kinds.values()),
            **{"  " + kind: count for kind, count in sorted(kinds.items())},
        }
        for name, value in rows.items():
            print(f"{name}: {value}")

    def save_all(self):
        self.save({"program.out": self.program.output, "program.log": self.program.log,
                   "modem.out": self.modem.output, "modem.log": self.modem.log})


def main():
    options = harness.parser(__doc__, 60, 4).parse_args()
    print(f"seed {options.seed}", flush=True)
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    folder = tempfile.mkdtemp(prefix="soak-")
    soak = Soak(options, folder)
    try:
        soak.run()
        soak.finish()
        complaints, figures = soak.judge()
        soak.show(figures)
    except Violated as violation:
        complaints = [str(violation)]
    finally:
        soak.save_all()
        for process in (soak.program, soak.modem):
            process.process.kill()
    harness.report(complaints, options.seed, folder)
    shutil.rmtree(folder)
    print("the books balance")


if __name__ == "__main__":
    main()
