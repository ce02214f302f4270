#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the blocks that keep what they are given, and those beside them, while the runtime is killed and restarted at
random, and modem, network, mail servers, Modbus server, disk and clock fail. At the end the books of the program,
its peers and its store must agree (field_accounts.py)."""
import argparse
import collections
import concurrent.futures
import glob
import os
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
import excuses
import faults
import field_accounts
import field_faults
import field_peers
import harness
import watch
from accounts import Event
from processes import PATIENCE, Process, Violated, await_state

HERE = os.path.dirname(os.path.abspath(__file__))
DISK = "64m"  # of the program's state folder
MEGABYTE = 1 << 20
SENDER = "+4915112345678"
WARM = 20  # seconds after which a run's memory should not grow any more
MOST_DESCRIPTORS = 80
LONG_EVERY = 25
LONG_TEXT = "давление в котле выше допустимого, насос остановлен; задвижка закрыта, ждём ответа"
FAKETIME = glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1")  # gives the program, and nobody else, another clock


class FieldSoak(harness.Harness):
    def __init__(self, options, folder):
        super().__init__(options, folder)
        self.options = options
        self.random = random.Random(f"{self.seed} kills")
        self.quiet = threading.Lock()  # held by what must not meet a kill
        self.kills = []
        self.output, self.log = [], []  # of the runs that have ended
        self.given, self.runs, self.growth = [], 0, []
        self.state = folder + "/state"
        os.mkdir(self.state)
        self.own_disk = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=" + DISK, "none", self.state],
                                       check=False, capture_output=True).returncode == 0
        attachment = random.Random(self.seed).randbytes(60_000)
        with open(folder + "/attachment.bin", "wb") as file:
            file.write(attachment)
        context = field_peers.tls_context(folder)
        self.mail = field_peers.MailServer(f"{self.seed} mail", attachment)
        self.tls = field_peers.MailServer(f"{self.seed} tls", attachment, context)
        self.modbus = field_peers.ModbusServer(f"{self.seed} modbus")
        self.minutes = [int(time.time()) // 60 * 60 + 60 * i for i in range(int(self.seconds / 60) + 30)]
        self.first_step = None  # when the program's clock was set for the first time, as all others show it
        self.set_clock(0)
        self.modem = Process(
            self.corvane, "modem", "--link", folder + "/modem", "--store-size", "255", "--network-delay", "50ms",
            "--seed", str(self.seed), preexec_fn=die_with_parent)
        self.modem.await_line("ready ")
        self.watcher = field_faults.Watcher(self)
        self.starter = concurrent.futures.ThreadPoolExecutor(1)
        self.start()

    def everything(self):
        """What the program has printed in all its runs."""
        return self.output + list(self.program.output)

    def start(self):
        # The system ends the program with the thread that has started it.
        self.starter.submit(self.start_program).result()

    def start_program(self):
        lines = []
        orders = field_accounts.orders_of(self.output)
        for name, numbers in orders.items():
            lines.append(f"{name} next {max(numbers) + 1}\n")
            if field_accounts.is_durable(name):
                lines += [f"{name} again {number}\n" for number in field_accounts.open_orders(numbers)]
        with open(self.folder + "/resume", "w", encoding="ascii") as file:
            file.writelines(lines)
        schedule = ";".join(time.strftime("%H:%M", time.localtime(minute)) for minute in self.minutes)
        self.runs += 1
        self.began = time.monotonic()
        self.program = Process(
            self.corvane, "run", HERE + "/field_soak.lua", "--cycle", "10ms",
            "--modem", f"1={self.folder}/modem,patience={excuses.PATIENCE}s", "--", self.folder, str(self.mail.port),
            str(self.tls.port), str(self.modbus.port), schedule, preexec_fn=die_with_parent,
            env={**os.environ, "STATE_DIRECTORY": self.state, "RUNTIME_DIRECTORY": self.folder + "/sockets",
                 "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0:" + excuses.SANITIZER,
                 **({"LD_PRELOAD": FAKETIME[0], "FAKETIME_TIMESTAMP_FILE": self.folder + "/clock",
                     "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1"} if FAKETIME else {})})
        self.program.await_line("ready$")

    def restart(self, how):
        """Ends the program in this way, and starts it again."""
        self.look_at_memory()
        if self.program.process.poll() is not None:
            raise Violated(f"the program has ended by itself: {[event.line for event in self.program.log[-20:]]}")
        self.program.process.send_signal(how)
        self.bury(how)
        self.start()

    def bury(self, how):
        """Reads the last lines of the program, which has been sent this signal."""
        if how == signal.SIGKILL:
            self.kills.append(time.monotonic())
        status = self.program.end()
        self.output += self.program.output
        self.log += self.program.log
        if status != (-signal.SIGKILL if how == signal.SIGKILL else 0):
            raise Violated(f"status {status} after {how}: {[event.line for event in self.program.log[-20:]]}")

    def look_at_memory(self):
        if time.monotonic() - self.began > 2 * WARM and self.warm:
            self.growth.append(watch.memory_of(self.program.pid) - self.warm)

    def kill_at_random(self):
        turn = 0
        while True:
            turn += 1
            # Now and then a run is long enough to show whether its memory grows.
            lives = self.random.uniform(60, 90) if turn % 25 == 0 else self.random.expovariate(1 / 5)
            self.warm = 0
            end = time.monotonic() + lives
            while time.monotonic() < end:
                if self.stopping.wait(min(0.5, max(0.0, end - time.monotonic()))):
                    return
                with self.quiet:
                    self.look()
            with self.quiet:
                self.restart(self.random.choice([signal.SIGKILL] * 3 + [signal.SIGTERM]))

    def look(self):
        if self.program.process.poll() is not None:
            raise Violated(f"the program has ended by itself: {[event.line for event in self.program.log[-20:]]}")
        if (count := len(watch.descriptors_of(self.program.pid))) > MOST_DESCRIPTORS:
            raise Violated(f"{count} descriptors: {watch.descriptors_of(self.program.pid)}")
        if not self.warm and time.monotonic() - self.began > WARM:
            self.warm = watch.memory_of(self.program.pid)

    def feed(self):
        """Sends messages to the modem, about two a second."""
        chance = random.Random(f"{self.seed} messages")
        while not self.stopping.wait(chance.expovariate(2)):
            number = len(self.given) + 1
            self.given.append(f"Сообщение {number}: {LONG_TEXT} ({number})" if number % LONG_EVERY == 0
                              else f"Message {number} from the plant")
            self.modem.say(f"receive {SENDER} {self.given[-1]}")

    def run(self):
        self.limit()
        workers = [self.kill_at_random, self.feed, faults.ModemFaults(self).run, field_faults.MailOutage(self).run,
                   field_faults.ModbusOutage(self).run, self.watcher.run]
        if self.own_disk:
            workers.append(field_faults.FullDisk(self).run)
        else:
            print("a full disk: SKIPPED, since this user cannot mount a file system")
        if self.options.steady_clock:
            print("steps of the clock: SKIPPED, as was wanted")
        elif FAKETIME:
            workers.append(field_faults.ClockSteps(self).run)
        else:
            print("steps of the clock: SKIPPED, since libfaketime is not installed")
        threads = [self.thread(work) for work in workers]
        self.stopping.wait(self.seconds)
        self.stopping.set()
        for thread in threads:
            thread.join(PATIENCE)
        if self.violations:
            raise Violated(self.violations[0])

    def messages(self, *words):
        result = subprocess.run([self.corvane, "messages", "--store", self.state + "/messages.db", *words],
                                check=False, capture_output=True, text=True)
        return result.returncode, result.stdout + result.stderr

    def limit(self):
        await_state("the limit to be set", lambda: self.messages("limit", "1000000")[0] == 0)

    def store(self, query):
        database = sqlite3.connect(f"file:{self.state}/messages.db?mode=ro", uri=True, timeout=30)
        try:
            return database.execute(query).fetchall()
        finally:
            database.close()

    def finish(self):
        """Lets everything be sent and received, with peers that are well."""
        self.mail.healthy = self.tls.healthy = True
        self.set_clock(0)
        self.modem.say("network on")
        self.modem.say("delay 50ms")
        self.leave("finish")
        end = time.monotonic() + 3 * PATIENCE
        while left := self.under_way():
            if self.program.process.poll() is not None:
                raise Violated(f"the program has ended by itself: {[event.line for event in self.program.log[-20:]]}")
            if time.monotonic() > end:
                raise Violated(f"still under way: {left[:10]}")
            self.hurry()
            time.sleep(0.5)
        self.look()
        self.leave("quit")
        status = self.program.end()
        self.output += self.program.output
        self.log += self.program.log
        if status != 0:
            raise Violated(f"status {status} at the end")
        self.modem.say("quit")
        if (status := self.modem.end()) != 0:
            raise Violated(f"status {status} of the modem")
        for server in (self.mail, self.tls, self.modbus):
            server.end()

    def hurry(self):
        """Has the messages that were refused tried again before it is their time."""
        later = "state = 0 AND in_transfer = 0"
        if not self.first_step:  # otherwise the times in the store say little
            later += f" AND next_try > {(time.time() + 5) * 1000:.0f}"
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for [number] in self.store(f"SELECT id FROM outgoing WHERE {later} LIMIT 40"):
                pool.submit(self.messages, "retry", str(number))

    def set_clock(self, seconds):
        """By how much the program's clock is ahead."""
        with open(self.folder + "/clock.new", "w", encoding="ascii") as file:
            file.write(f"{seconds:+d}\n")
        os.rename(self.folder + "/clock.new", self.folder + "/clock")

    def under_way(self):
        """What the program still has to do."""
        events = self.everything()
        orders = field_accounts.orders_of(events)
        left = [f"order {name} {number}" for name, numbers in orders.items() for number in
                (field_accounts.open_orders(numbers) if field_accounts.is_durable(name) else [])]
        left += [f"row {row}" for row in self.store("SELECT id, attempts, reason FROM outgoing WHERE state = 0")]
        got = {match[1] for event in events if (match := re.match(r"got \d+ \d+ \S+ (.*)$", event.line))}
        return left + [f"to be offered: {text}" for text in self.given if text not in got]

    def judge(self):
        """Returns complaints, and figures by name."""
        orders = field_accounts.orders_of(self.output)
        sms, mails = collections.defaultdict(list), collections.defaultdict(list)
        for channel, receiver, content, *rest in self.store(
                "SELECT channel, receiver, content, state, unknown_ends, error_id FROM outgoing"):
            if channel == "sms":
                sms[receiver.lstrip("+")].append(field_accounts.Row(*rest))
            else:
                mails[re.search(r"order (\w+-\d+)", content)[1]].append(field_accounts.Row(*rest))
        complaints, figures = [], {"runs": self.runs, "killed": len(self.kills), "messages of the bench": self.watcher.count}
        if not self.watcher.count:
            complaints.append("the bench has said nothing")
        with open(self.folder + "/started", encoding="ascii") as file:
            started = [int(line) for line in file]
        fired_at = [minute for minute in self.minutes
                    if self.wall_start + 2 < minute < (self.first_step or self.wall_end) - 10]
        for found, numbers in (
                field_accounts.check_sms(orders, sms, self.modem.output, self.faults, self.kills),
                field_accounts.check_mails(orders, mails, self.mail.attempts + self.tls.attempts, self.faults, self.kills),
                field_accounts.check_inbox(self.output, self.given),
                field_accounts.check_once("process", orders["process"], started),
                field_accounts.check_once("modbus", orders["modbus"], self.modbus.written),
                field_accounts.check_schedule(self.output, fired_at, self.kills)):
            complaints += found
            figures |= numbers
        complaints += field_accounts.check_retained(self.output, self.kills, self.faults)
        complaints += field_accounts.check_wrong(self.output) + field_accounts.check_hung(orders["hung"])
        complaints += field_accounts.check_log(self.log)
        if self.growth and max(self.growth) > self.options.growth * MEGABYTE:
            complaints.append(f"the memory has grown: {self.growth}")
        return complaints, figures

    def show(self, figures):
        kinds = collections.Counter(fault.kind for fault in self.faults)
        conversations = self.mail.faults + self.tls.faults
        rows = {**figures, "growth of memory in long runs": [f"{size / MEGABYTE:.1f} MB" for size in self.growth],
                "conversations of the mail servers": conversations.total(),
                "of these with a fault": conversations.total() - conversations[field_peers.NONE],
                "faults": kinds.total(), **{"  " + kind: count for kind, count in sorted(kinds.items())}}
        for name, value in rows.items():
            print(f"{name}: {value}")

    def save_all(self):
        self.save({"program.out": self.output + list(self.program.output),
                   "program.log": self.log + list(self.program.log),
                   "modem.out": self.modem.output, "modem.log": self.modem.log,
                   "kills": [Event(kill, "killed") for kill in self.kills]})
        with open(self.folder + "/attempts", "w", encoding="utf-8") as file:
            file.writelines(f"{attempt}\n" for attempt in self.mail.attempts + self.tls.attempts)


def die_with_parent():
    import ctypes
    ctypes.CDLL(None).prctl(1, signal.SIGKILL, 0, 0, 0)  # PR_SET_PDEATHSIG, prctl(2)


def main():
    parser = harness.parser(__doc__, 45, 8)
    parser.add_argument("--steady-clock", action="store_true", help="do not set the program's clock")
    parser.add_argument("--within", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.within and subprocess.run(["unshare", "-m", "true"], check=False, capture_output=True).returncode == 0:
        # So that the disk is seen by nobody else, and goes when this ends.
        os.execvp("unshare", ["unshare", "-m", sys.executable, *sys.argv, "--within", "--seed", str(options.seed)])
    print(f"seed {options.seed}", flush=True)
    folder = tempfile.mkdtemp(prefix="soak-")
    soak = FieldSoak(options, folder)
    soak.wall_start = time.time()
    try:
        soak.run()
        soak.wall_end = time.time()
        soak.finish()
        complaints, figures = soak.judge()
        soak.show(figures)
    except Violated as violation:
        complaints = [str(violation)]
    finally:
        soak.save_all()
        for process in (soak.program, soak.modem):
            process.process.kill()
    if complaints and soak.own_disk:
        shutil.copytree(soak.state, folder + "/state-at-the-end", ignore=shutil.ignore_patterns("filling"))
    harness.report(complaints, options.seed, folder)
    if soak.own_disk:
        subprocess.run(["umount", "-l", soak.state], check=True)
    shutil.rmtree(folder)
    print("the books balance")


if __name__ == "__main__":
    main()
