# SPDX-License-Identifier: MIT
"""Checks what happened in a long run. Each function returns complaints, as texts; none if all is well.
Each side has a history: a list of Event in the order of that side. message_accounts.py checks the
messages; excuses.py knows what a fault can explain, and how often."""
import collections
import collections.abc
import dataclasses
import re

from excuses import (MAIL_WAIT, SILENCES, failures_of, mails_of, overlaps,
                     prolonged, touches, unexplained)

# Per minute; less than half of the figures of the slowest run of a sanitised program. A dead mail
# server, and a modem that falls silent during a long wait, leave the messages little time.
LEAST = {"messages sent": 5, "messages received": 15, "mails taken, code 0": 40,
         "commands with a result": 300, "of these killed": 2, "background commands": 150}
FULL_TURN = 60  # seconds in which every kind of fault has had its turn


@dataclasses.dataclass
class Event:
    time: float
    line: str


def check_mails(program, faults, records, wanted_codes, has_attachment):
    """Each message that the server accepted is reported with 0, or with a code of the fault that hit it;
    none arrived twice. wanted_codes, has_attachment: for a message's number, the codes that it causes
    itself, and whether it has an attachment."""
    complaints = []
    codes = {}
    for event in program:
        if match := re.match(r"mail (\d+) (\d+)$", event.line):
            if int(match[1]) in codes:
                complaints.append(f"two results: {event.line}")
            codes[int(match[1])] = (int(match[2]), event.time)
    by_number = collections.defaultdict(list)
    for record in records:
        by_number[record.number].append(record)
        if record.problem:
            complaints.append(f"mail {record.number}: {record.problem}")
    nameless = collections.Counter(record.fault for record in by_number.pop(0, []))
    # The server never learnt the numbers of these. Those that only a faulty conversation explains
    # come first, so that no other uses it up.
    unknown = sorted(
        (any(explains_mail((number, code, time), fault) for fault in faults), number, code, time)
        for number, (code, time) in codes.items() if number not in by_number)
    failed = [(number, code, time) for _, number, code, time in unknown
              if not use_up(code, nameless)]
    took_and_failed = 0
    for number, (code, time) in codes.items():
        if number not in by_number:
            continue
        if len(by_number[number]) > 1:
            complaints.append(f"mail {number} arrived {len(by_number[number])} times")
        record = by_number[number][0]
        allowed = set(record.fault.codes) | wanted_codes(number)
        if wanted_codes(number):
            allowed.discard(0)
        if code == 404 and code not in allowed and has_attachment(number):
            failed.append((number, code, time))  # no descriptor for the file
        elif code not in allowed:
            complaints.append(f"mail {number}: code {code} after {record.fault}, not in {allowed}")
        if (code == 0) > record.taken:
            complaints.append(f"mail {number}: code 0, but the server has no message")
        took_and_failed += record.taken and code != 0
    complaints += [f"mail {number}: code {code}, which nothing explains" for number, code, _ in
                   unexplained(failed, faults, mails_of, explains_mail)]
    for number in by_number.keys() - codes.keys():
        complaints.append(f"mail {number} reached the server but was never reported")
    complaints += [f"a conversation that belongs to no mail: {f}" for f in nameless.elements()]
    failures = collections.Counter(code for code, _ in codes.values() if code)
    return complaints, {
        "mails taken, code 0": sum(code == 0 for code, _ in codes.values()),
        "mails taken, the server then closed, hung or refused QUIT": took_and_failed,
        "mails failed, by code": dict(sorted(failures.items())),
    }


def use_up(code, nameless):
    """Whether one of these conversations explains the code; if so, it belongs to that mail."""
    fitting = [fault for fault in nameless if code in fault.codes and nameless[fault] > 0]
    if fitting:
        nameless[min(fitting, key=lambda fault: len(fault.codes))] -= 1
    return bool(fitting)


def explains_mail(mail, fault):
    """Whether the fault can be why no server heard of this mail, or why its file was not opened."""
    _, code, time = mail
    kind = {106: "no descriptors", 404: "no descriptors"}.get(code, "mail server down")
    refused = kind == "mail server down" and code not in (102, 103, 104, 408)
    return not refused and fault.kind == kind and touches(fault, time, time)


def keeps_a_descriptor(code):
    """Whether a mail that ended with this code keeps its connection: by design, all that got one."""
    return code not in (0, 104, 105, 106, 108, 403)


def check_files(program, records, has_attachment, files):
    """files: attachments that are still open. A mail that fails while its file is being sent keeps the
    file, too; from outside one cannot see whether the connection had already taken the whole file."""
    failed = {int(match[1]) for event in program
              if (match := re.match(r"mail (\d+) [1-9]", event.line))}
    cut = sum(record.fault.stage == "middle" and record.number in failed
              and has_attachment(record.number) for record in records)
    return [f"{files} attachments are open, but {cut} were cut off"] if files > cut else []


def check_commands(program, faults, started, starts, signals):
    """started: the numbers that background commands left, of 1 to starts; signals: the signal that
    killed each killed command."""
    complaints = []
    excused = set()  # background commands that found no descriptor, as those with a result did
    since = None
    for event in program:
        starved = overlaps(faults, event.time, event.time, "no descriptors")
        if match := re.match(r"victim (\d+) (\d+)$", event.line):
            sent = signals.get(int(match[1]), 0)  # 0: it could not ask to be killed
            if int(match[2]) != sent or sent == 0 and not starved:
                complaints.append(f"killed by {sent}: {event.line}")
        elif match := re.match(r"refused at (\d+): ", event.line):
            since = int(match[1]) if starved else None
        elif match := re.match(r"accepted at (\d+)$", event.line):
            if not overlaps(faults, event.time - MAIL_WAIT, event.time, "no descriptors"):
                complaints.append(f"refused for too long: {event.line}")
            elif since is not None:  # the limit was set and lifted between two commands
                excused |= set(range(since - 1, int(match[1]) + 2))
        if event.line.startswith("wrong: ") or (
                event.line.startswith(("refused ", "not queued: ")) and not starved):
            complaints.append(event.line)
    counts = collections.Counter(started)
    ordered = set(range(1, starts + 1))
    missing = ordered - counts.keys()
    complaints += [f"command {number} ran {n} times" for number, n in counts.items() if n > 1]
    complaints += [f"command {n} ran, but was never ordered" for n in counts.keys() - ordered]
    complaints += [f"command {n} was never started" for n in missing - excused]
    return complaints, {"background commands that found no descriptor": len(missing)}


@dataclasses.dataclass
class Warned:
    """A warning or an error that the log may contain."""
    pattern: str
    kinds: tuple  # of the faults that can cause it
    delay: float  # seconds by which it may follow its fault
    times_of: collections.abc.Callable  # lines for one fault


# A refusal that was ordered waits for the next command of its kind; a message may be long in coming.
ORDERED = 30  # seconds
# The port waits longer for a late answer than its client does before it reports the silence.
LATE = 8  # seconds
LATE_LIST = 20
LATE_CONFIRMATION = 180

EXPLAINED = [
    Warned(r"modem port 1: .* is lost: ", ("unplugged",), 0, lambda fault: 1),
    # One of these may replace the other, and appear again.
    Warned(r"modem port 1: .* does not exist; ", ("unplugged",), 0, lambda fault: 3),
    Warned(r"modem port 1: .*: Input/output error$", ("unplugged",), 0, lambda fault: 3),
    Warned(r"modem port 1: .*Too many open files", ("no descriptors",), 0, lambda fault: 3),
    Warned(r"modem port 1: the modem has restarted \(", ("restarted",), 0, lambda fault: 1),
    Warned(r"modem port 1: no answer to AT\+CMGL", SILENCES, LATE_LIST, failures_of),
    Warned(r"modem port 1: no answer to ", SILENCES, LATE, failures_of),
    # The port repeats none of these within a minute.
    Warned(r"modem port 1: AT\+CMGL=0 was refused: ", ("CMGL refused",), ORDERED, lambda fault: fault.times),
    Warned(r"modem port 1: AT\+CMGD=\d+ was refused: ", ("CMGD refused",), ORDERED, lambda fault: fault.times),
    Warned(r"modem port 1: a message was refused: ", ("CMGS refused", "no network"), ORDERED,
           lambda fault: fault.times),
    Warned(r"modem port 1: a message is given up; ", ("CMGS refused", "no network", *SILENCES), ORDERED,
           failures_of),
    Warned(r"modem port 1: (no confirmation of a message within|a message is lost in the modem: )", SILENCES,
           LATE_CONFIRMATION, failures_of),
]
# The host's: a dead mail server, a command and a slow machine hold the cycle.
OF_LONG_CYCLES = re.compile(r"overrun: |\d+ more overruns |cycle \d+ has been running for ")
TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} "
LOG_LINE = TIME + r"(\w+) +(.*)$"


def check_log(log, program, faults, failed_mails):
    complaints, logged = [], collections.Counter()  # how many mails, by the kind of line
    warned = collections.defaultdict(list)  # index in EXPLAINED -> [Event]
    # A shell, which writes piece by piece, may have begun a line that the log then continues.
    lines = [Event(event.time, line) for event in log
             for line in re.split(f"(?={TIME})", event.line) if line]
    for event in lines:
        match = re.match(LOG_LINE, event.line)
        if match is None:  # from a shell, which has no descriptor to spare either
            if not overlaps(faults, event.time, event.time, "no descriptors"):
                complaints.append(f"in the log: {event.line}")
        elif match[1] in ("warning", "error") and not OF_LONG_CYCLES.match(match[2]):
            row = next((i for i, row in enumerate(EXPLAINED) if re.match(row.pattern, match[2])),
                       None)
            if not match[2].startswith("modem port "):
                logged["name" if match[2].startswith("SEND_EMAIL of ") else "error"] += 1
            elif row is None:
                complaints.append(f"no fault explains: {event.line}")
            else:
                warned[row].append(event)
    for row, events in warned.items():
        complaints += check_warned(EXPLAINED[row], events, prolonged(faults, program, EXPLAINED[row].delay))
    complaints += [f"{failed_mails} mails failed, but the log has the {what} of {logged[what]}"
                   for what in ("error", "name") if logged[what] != failed_mails]
    return complaints


def check_warned(row, events, faults):
    left = unexplained(
        events, [fault for fault in faults if fault.kind in row.kinds], row.times_of,
        lambda event, fault: touches(fault, event.time - row.delay, event.time))
    return [f"no fault explains: {event.line}" for event in left]


def check_enough(figures, faults, records, kinds, seconds):
    """Checks that enough was done at all. kinds: the faults that every run of sufficient length meets."""
    complaints = [f"{name}: {figures[name]}, and at least {least * seconds / 60:.0f} were expected"
                  for name, least in LEAST.items() if figures[name] < int(least * seconds / 60)]
    if seconds < FULL_TURN:
        return complaints
    met = {fault.kind for fault in faults}
    complaints += [f"no fault of this kind: {kind}" for kind in kinds if kind not in met]
    spoilt = {record.fault.kind for record in records}
    return complaints + [f"no conversation with this fault: {kind}"
                         for kind in ("close", "refuse") if kind not in spoilt]
