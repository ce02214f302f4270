# SPDX-License-Identifier: MIT
"""What is allowed of what happened in a long run. Each function gives complaints: texts, none when
all is well. What happened is a history for each side: lists of Event in the order of that side.

A message may leave the modem twice only where its confirmation was lost on the wire, and stay in
its store unread by the program only where a fault cut the list (docs/modem.md). Which faults can
have done that is read from the simulator's own order of events."""
import collections
import dataclasses
import re

SLACK = 5  # seconds that a fault's consequences may show after its end
STALLED = "machine stalled"  # so long that an answer can have been late
MODEM_FAULTS = ("unplugged", "muted", "output held", "restarted", "garbage", "no network", STALLED)


@dataclasses.dataclass
class Event:
    time: float
    line: str


@dataclasses.dataclass
class Span:
    """A fault, from when to when it may have worked."""
    kind: str
    start: float
    end: float


def overlaps(spans, start, end, *kinds):
    return any(span.kind in kinds and span.start <= end and start <= span.end + SLACK
               for span in spans)


@dataclasses.dataclass
class Take:
    """The network has taken a part of a message, and the modem confirms it."""
    exposed: bool = False  # a fault can have lost the confirmation


class SentMessages:
    """From the simulator's lines: which parts it has passed on, which it has refused."""

    def __init__(self, history):
        self.takes = collections.defaultdict(list)  # (number, part) -> [Take]
        self.refusals = collections.Counter()
        self.texts = []  # (number, text)
        self.complaints = []
        self.last = None  # what the controller has caused last, when it was a take
        self.muted_until = None  # as long as no take has met it
        for event in history:
            self.look_at(event)

    def look_at(self, event):
        if match := re.match(r"part (\d+) of \d+ to \+(\d+)$", event.line):
            self.add(match[2], int(match[1]), event.time)
        elif match := re.match(r"sent to \+(\d+)( in \d+ parts)?: (.*)$", event.line):
            self.texts.append((match[1], match[3]))
            if not match[2]:  # else its parts have told
                self.add(match[1], 1, event.time)
        elif match := re.match(r"refused: message to \+(\d+): ", event.line):
            self.refusals[match[1]] += 1
        elif match := re.match(r"muted for (\S+)$", event.line):
            self.muted_until = event.time + seconds_of(match[1]) + SLACK
        elif event.line.startswith("unplugged for "):
            if self.last is not None:  # nothing since: its confirmation may not have been seen
                self.last.exposed = True
        elif event.line.startswith("deleted place "):
            self.last = None
        elif event.line.startswith("refused: "):
            self.complaints.append(f"the modem cannot use what it got: {event.line}")

    def add(self, number, part, time):
        self.last = Take()
        self.takes[number, part].append(self.last)
        if self.muted_until is not None:  # it hears nothing, so this can happen to one take only
            self.last.exposed = time <= self.muted_until
            self.muted_until = None


def seconds_of(text):
    number, unit = re.fullmatch(r"([\d.]+)(\D+)", text).groups()
    return float(number) * {"us": 1e-6, "ms": 0.001, "s": 1, "min": 60}[unit]


def check_sent(modem, program, faults, parts_of, text_of):
    """Each message that was confirmed is reported once, and the other way round."""
    sent = SentMessages(modem)
    complaints = list(sent.complaints)
    outcomes = {}
    for event in program:
        if match := re.match(r"sms (sent|dropped) (\d+) (\d+)$", event.line):
            if match[2] in outcomes:
                complaints.append(f"two outcomes: {event.line}")
            outcomes[match[2]] = (match[1], int(match[3]), event.time)
    for number in {number for number, _ in sent.takes} - outcomes.keys():
        complaints.append(f"the message to {number} was taken and never reported")
    for number, text in sent.texts:
        if text != text_of(number):
            complaints.append(f"another text went to {number}: {text}")
    for number, (outcome, error, time) in outcomes.items():
        last = parts_of(number)
        for part in range(1, last + 1):
            takes = sent.takes[number, part]
            if outcome == "sent" and not takes:
                complaints.append(f"part {part} to {number} is reported sent, and was never taken")
            if any(not take.exposed for take in takes[:-1]):
                complaints.append(f"part {part} to {number} went out again after its confirmation")
        if outcome == "sent":
            continue
        if any(not take.exposed for take in sent.takes[number, last]):
            complaints.append(f"the message to {number} was confirmed, and is reported dropped")
        if error >= 100 and not sent.refusals[number]:
            complaints.append(f"dropped with {error}, which the modem never said: {number}")
        if error < 100 and not overlaps(faults, time - 60, time, *MODEM_FAULTS):
            complaints.append(f"dropped with {error} and no fault in sight: {number}")
    again = sum(len(takes) - 1 for takes in sent.takes.values() if takes)
    return complaints, {
        "messages sent": sum(outcome == "sent" for outcome, *_ in outcomes.values()),
        "messages dropped after four failures": sum(o == "dropped" for o, *_ in outcomes.values()),
        "parts that went out again, their confirmation lost": again,
        "refusals (+CMS ERROR)": sum(sent.refusals.values()),
    }


ARRIVAL = re.compile(r"received, place (\d+): from \S+ at \S+?(?:, part \d+ of \d+)?: (.*)$")


class Store:
    """From the simulator's lines: what came into its store and what has left it."""

    def __init__(self, history):
        self.history = history
        self.arrivals = []  # (index of the event, text)
        self.deletions = []  # (index of the event, index of the arrival's event)
        places = {}
        for index, event in enumerate(history):
            if match := ARRIVAL.match(event.line):
                places[match[1]] = index
                self.arrivals.append((index, match[2]))
            elif match := re.match(r"deleted place (\d+)$", event.line):
                self.deletions.append((index, places.pop(match[1])))
        self.kept = set(places.values())

    def explained(self, arrival, faults):
        """Whether a fault lies between the arrival and the time when a later pass was over."""
        first = next((i for i, of in self.deletions if of > arrival), None)
        second = first and next((i for i, of in self.deletions if of > first), None)
        start = self.history[arrival].time
        end = self.history[second].time if second else float("inf")
        return any(fault.start <= end and start <= fault.end + SLACK for fault in faults)


def check_received(modem, program, faults, wanted):
    """Each message that came into the store is delivered once, or is in the store still.
    wanted: text of each message by the text of each of its parts."""
    store = Store(modem)
    complaints = []
    got = collections.Counter(event.line.removeprefix("got ") for event in program
                              if event.line.startswith("got "))
    complaints += [f"delivered {n} times: {text}" for text, n in got.items() if n > 1]
    arrived, kept = set(), set()
    stranded = leftover = 0
    for index, text in store.arrivals:
        message = wanted.get(text)
        if message is None:
            complaints.append(f"unknown in the store: {text}")
            continue
        arrived.add(message)
        if index not in store.kept:
            continue
        kept.add(message)
        stranded += message not in got
        leftover += message in got
        if not store.explained(index, [f for f in faults if f.kind in (*MODEM_FAULTS, "refusal")]):
            complaints.append(f"in the store to the end, and no fault explains it: {message}")
    complaints += [f"delivered, and never in the store: {text}" for text in got.keys() - arrived]
    complaints += [f"deleted, and never delivered: {text}" for text in arrived - got.keys() - kept]
    return complaints, {
        "messages received": len(got),
        "parts left in the store, the list that told of them lost": stranded,
        "messages delivered whose deletion failed": leftover,
    }


def check_mails(program, faults, records, wanted_codes):
    """Each message that the server took is reported with 0, or with what the fault behind it
    gives; none came twice. wanted_codes: codes that a message gives by itself, by its number."""
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
    # The server never learnt the numbers of these. First come those that only a conversation with a
    # fault explains, so that no other uses it up.
    unknown = sorted((nobody_listened(code, time, faults), number, code)
                     for number, (code, time) in codes.items() if number not in by_number)
    for otherwise, number, code in unknown:
        if not use_up(code, nameless) and not otherwise:
            complaints.append(f"mail {number}: code {code}, and nothing explains it")
    took_and_failed = 0
    for number, (code, time) in codes.items():
        if number not in by_number:
            continue
        if len(by_number[number]) > 1:
            complaints.append(f"mail {number} came {len(by_number[number])} times")
        record = by_number[number][0]
        allowed = set(record.fault.codes) | wanted_codes(number)
        if wanted_codes(number):
            allowed.discard(0)
        if overlaps(faults, time - 15, time, "no descriptors"):
            allowed.add(404)  # no descriptor for the attachment
        if code not in allowed:
            complaints.append(f"mail {number}: code {code} after {record.fault}, not in {allowed}")
        if (code == 0) > record.taken:
            complaints.append(f"mail {number}: code 0, and the server has no message")
        took_and_failed += record.taken and code != 0
    for number in by_number.keys() - codes.keys():
        complaints.append(f"mail {number} reached the server and was never reported")
    complaints += [f"a conversation that belongs to no mail: {f}" for f in nameless.elements()]
    failed = collections.Counter(code for code, _ in codes.values() if code)
    return complaints, {
        "mails taken, code 0": sum(code == 0 for code, _ in codes.values()),
        "mails taken, the server then closed, hung or refused QUIT": took_and_failed,
        "mails failed, by code": dict(sorted(failed.items())),
    }


def use_up(code, nameless):
    """Whether one of these conversations explains the code; it then belongs to that mail."""
    fitting = [fault for fault in nameless if code in fault.codes and nameless[fault] > 0]
    if fitting:
        nameless[min(fitting, key=lambda fault: len(fault.codes))] -= 1
    return bool(fitting)


def nobody_listened(code, time, faults):
    """Whether a mail with this code can be one that no server heard of."""
    if code == 106:
        return overlaps(faults, time - 15, time, "no descriptors")
    if code in (102, 103, 104, 408):
        return overlaps(faults, time - 15, time, "mail server down")
    return False


def keeps_a_descriptor(code):
    """Whether a mail that ended so keeps its connection: by design all that got one."""
    return code not in (0, 104, 105, 106, 108, 403)


def check_files(program, records, has_attachment, files):
    """files: attachments that are still open. A mail that fails while its file is sent keeps that,
    too; whether all of the file fitted into the connection before is not seen from outside."""
    failed = {int(match[1]) for event in program
              if (match := re.match(r"mail (\d+) [1-9]", event.line))}
    cut = sum(record.fault.stage == "middle" and record.number in failed
              and has_attachment(record.number) for record in records)
    return [f"{files} attachments are open, {cut} were cut off"] if files > cut else []


def check_commands(program, faults, started, starts, signals):
    """started: the numbers that background commands left, of 1 to starts; signals: what each
    killed command was killed with."""
    complaints = []
    excused = set()  # background commands that found no descriptor, like those with a result
    since = None
    for event in program:
        starved = overlaps(faults, event.time, event.time, "no descriptors")
        if match := re.match(r"victim (\d+) (\d+)$", event.line):
            sent = signals.get(int(match[1]), 0)  # 0: it could not ask for it
            if int(match[2]) != sent or sent == 0 and not starved:
                complaints.append(f"killed by {sent}: {event.line}")
        elif match := re.match(r"refused at (\d+): ", event.line):
            since = int(match[1])
        elif match := re.match(r"accepted at (\d+)$", event.line):
            # The limit came and went between two commands.
            excused |= set(range(since - 1, int(match[1]) + 2))
        if event.line.startswith(("wrong: ", "refused ", "not queued: ")) and not starved:
            complaints.append(event.line)
    counts = collections.Counter(started)
    ordered = set(range(1, starts + 1))
    missing = ordered - counts.keys()
    complaints += [f"command {number} ran {n} times" for number, n in counts.items() if n > 1]
    complaints += [f"command {n} ran, and was never ordered" for n in counts.keys() - ordered]
    complaints += [f"command {n} was never started" for n in missing - excused]
    return complaints, {"background commands that found no descriptor": len(missing)}


# What the log may say as a warning or an error, and after which faults.
EXPLAINED = [
    (r"modem port 1: .* is lost: ", ("unplugged",)),
    (r"modem port 1: .* does not exist; ", ("unplugged",)),
    (r"modem port 1: .*: Input/output error$", ("unplugged",)),
    (r"modem port 1: .*Too many open files", ("no descriptors",)),
    (r"modem port 1: the modem has started anew \(", ("restarted",)),
    (r"modem port 1: no answer to ",
     ("muted", "output held", "unplugged", "restarted", "garbage", STALLED)),
]
TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} "
LOG_LINE = TIME + r"(\w+) +(.*)$"


def check_log(log, faults, failed_mails):
    complaints, mail_lines = [], 0
    # A shell, which writes piece by piece, may have begun a line where the log goes on.
    lines = [Event(event.time, line) for event in log
             for line in re.split(f"(?={TIME})", event.line) if line]
    for event in lines:
        match = re.match(LOG_LINE, event.line)
        if match is None:  # of a shell, which has no descriptor to spare either
            if not overlaps(faults, event.time, event.time, "no descriptors"):
                complaints.append(f"in the log: {event.line}")
        elif match[1] in ("warning", "error"):
            kinds = next((kinds for text, kinds in EXPLAINED if re.match(text, match[2])), ())
            if not match[2].startswith("modem port "):
                mail_lines += 1
            elif not overlaps(faults, event.time - SLACK, event.time, *kinds):
                complaints.append(f"no fault explains: {event.line}")
    if mail_lines != failed_mails:
        complaints.append(f"{failed_mails} mails failed, the log tells of {mail_lines}")
    return complaints
