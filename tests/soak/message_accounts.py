# SPDX-License-Identifier: MIT
"""Checks the messages of a long run, as accounts.py checks the rest.

A message may leave the modem twice only if its confirmation was lost on the wire, and stay in its
store only if a fault cut the list that named it, or prevented its deletion (docs/modem.md). The
simulator's own order of events shows which faults can have done that."""
import bisect
import collections
import dataclasses
import re

from excuses import LAG, SILENCES, Span, failures_of, prolonged, touches, unexplained

TRIES = 4  # failures in a row after which SEND_SMS drops a message
OWN_ERRORS = (3, 6)  # of SEND_SMS: unexpected answer, and no answer; others are the modem's numbers
MOST_LISTED = 15  # messages and parts that one list can hold; messages.py keeps few under way


@dataclasses.dataclass
class Take:
    """The network has accepted a part of a message, and the modem confirms it."""
    time: float
    exposed: bool = False  # a fault can have lost the confirmation


@dataclasses.dataclass
class Refusal:
    """The modem has refused a message."""
    time: float
    error: int
    exposed = True  # it confirms nothing


class SentMessages:
    """From the simulator's lines: which parts it has passed on, and which it has refused."""

    def __init__(self, history):
        self.takes = collections.defaultdict(list)  # (number, part) -> [Take]
        self.attempts = collections.defaultdict(list)  # number -> [Take or Refusal]
        self.texts = []  # (number, text)
        self.complaints = []
        self.last = None  # the last event that the controller caused, if it was a take
        self.muted_until = None  # set until a take has met it
        self.unplugged = False
        for event in history:
            self.look_at(event)

    def look_at(self, event):
        if match := re.match(r"part (\d+) of \d+ to \+(\d+)$", event.line):
            self.add(match[2], int(match[1]), event.time)
        elif match := re.match(r"sent to \+(\d+)( in \d+ parts)?: (.*)$", event.line):
            self.texts.append((match[1], match[3]))
            if not match[2]:  # otherwise its parts were reported
                self.add(match[1], 1, event.time)
        elif match := re.match(r"refused: message to \+(\d+): \+CMS ERROR: (\d+)$", event.line):
            self.attempts[match[1]].append(Refusal(event.time, int(match[2])))
            self.last = None
        elif match := re.match(r"muted for (\S+)$", event.line):
            self.muted_until = event.time + seconds_of(match[1]) + LAG
        elif event.line.startswith("unplugged for "):
            self.unplugged = True
            if self.last is not None:  # nothing since, so its confirmation may not have been seen
                self.last.exposed |= event.time <= self.last.time + LAG
        elif event.line.startswith("plugged in again"):
            self.unplugged = False
        elif event.line.startswith("deleted place "):
            self.last = None
        elif event.line.startswith("refused: "):
            self.complaints.append(f"the modem cannot use what it got: {event.line}")

    def add(self, number, part, time):
        self.last = Take(time, exposed=self.unplugged)
        self.takes[number, part].append(self.last)
        self.attempts[number].append(self.last)
        if self.muted_until is not None:  # it hears nothing, so only one take can be affected
            self.last.exposed |= time <= self.muted_until
            self.muted_until = None

    def last_refusals(self, number):
        """The refusals since the last part that the program knows was sent: its count of failures
        begins there."""
        attempts = self.attempts[number]
        certain = [i for i, attempt in enumerate(attempts) if not attempt.exposed]
        return [attempt for attempt in attempts[certain[-1] + 1 if certain else 0:]
                if isinstance(attempt, Refusal)]

    def refusals(self):
        return [attempt for attempts in self.attempts.values() for attempt in attempts
                if isinstance(attempt, Refusal)]


def seconds_of(text):
    number, unit = re.fullmatch(r"([\d.]+)(\D+)", text).groups()
    return float(number) * {"us": 1e-6, "ms": 0.001, "s": 1, "min": 60}[unit]


@dataclasses.dataclass
class Outcome:
    """What the program says about a message, and when its sender was free for it."""
    what: str  # sent, dropped
    error: int
    start: float
    end: float


def outcomes_of(program, complaints):
    """The outcomes by the receiver's number, whose first digits identify the sender."""
    outcomes, free = {}, {}
    for event in program:
        if match := re.match(r"sms (sent|dropped) ((\d{4})\d+) (\d+)$", event.line):
            if match[2] in outcomes:
                complaints.append(f"two outcomes: {event.line}")
            start = free.get(match[3], program[0].time)
            outcomes[match[2]] = Outcome(match[1], int(match[4]), start, event.time)
            free[match[3]] = event.time
    return outcomes


def check_sent(modem, program, faults, parts_of, text_of):
    """Each confirmed message is reported once, and vice versa; a message is dropped after four
    failures."""
    sent = SentMessages(modem)
    complaints = list(sent.complaints)
    outcomes = outcomes_of(program, complaints)
    for number in {number for number, _ in sent.takes} - outcomes.keys():
        complaints.append(f"the message to {number} was accepted but never reported")
    for number, text in sent.texts:
        if text != text_of(number):
            complaints.append(f"another text went to {number}: {text}")
    for number, outcome in outcomes.items():
        for part in range(1, parts_of(number) + 1):
            takes = sent.takes[number, part]
            if outcome.what == "sent" and not takes:
                complaints.append(f"part {part} to {number} is reported as sent but was never accepted")
            if any(not take.exposed for take in takes[:-1]):
                complaints.append(f"part {part} to {number} went out again after its confirmation")
    dropped = {number: outcome for number, outcome in outcomes.items() if outcome.what == "dropped"}
    complaints += check_dropped(sent, dropped, prolonged(faults, program), parts_of)
    complaints += check_refusals(sent.refusals(), faults)
    again = sum(len(takes) - 1 for takes in sent.takes.values() if takes)
    return complaints, {
        "messages sent": len(outcomes) - len(dropped),
        "messages dropped after four failures": len(dropped),
        "parts that went out again after their confirmation was lost": again,
        "refusals (+CMS ERROR)": len(sent.refusals()),
    }


def check_dropped(sent, dropped, faults, parts_of):
    complaints, failures = [], []  # failures: a number for each one that was not a refusal
    for number, outcome in dropped.items():
        if any(not take.exposed for take in sent.takes[number, parts_of(number)]):
            complaints.append(f"the message to {number} was confirmed but is reported as dropped")
        refusals = sent.last_refusals(number)
        own = outcome.error in OWN_ERRORS
        if not own and [refusal.error for refusal in refusals[-1:]] != [outcome.error]:
            complaints.append(f"dropped with {outcome.error}, which was not the modem's last word: "
                              f"{number}")
        failures += [number] * max(TRIES - len(refusals), own)
    left = unexplained(
        failures, [fault for fault in faults if fault.kind in SILENCES], failures_of,
        lambda number, fault: touches(fault, dropped[number].start, dropped[number].end))
    return complaints + [f"dropped, but no fault explains {n} of its failures: {number}"
                         for number, n in collections.Counter(left).items()]


def check_refusals(refusals, faults):
    """Each refusal was ordered, or there was no network."""
    def fits(refusal, fault):
        if fault.kind == "no network":
            return refusal.error == 331 and touches(fault, refusal.time, refusal.time)
        return fault.kind == "CMGS refused" and fault.start <= refusal.time
    left = unexplained(refusals, faults, lambda fault: (
        len(refusals) if fault.kind == "no network" else fault.times), fits)
    return [f"the modem refused a message without being told to: {refusal}" for refusal in left]


ARRIVAL = re.compile(r"received, place (\d+): from \S+ at \S+?(?:, part \d+ of \d+)?: (.*)$")


class Store:
    """From the simulator's lines: what entered its store, and what left it."""

    def __init__(self, history):
        self.history = history
        self.arrivals = []  # (index of the event, text)
        self.deletions = []  # (index of the event, index of the arrival's event)
        self.cuts = []  # indexes of the events that cut a list
        places = {}
        for index, event in enumerate(history):
            if match := ARRIVAL.match(event.line):
                places[match[1]] = index
                self.arrivals.append((index, match[2]))
            elif match := re.match(r"deleted place (\d+)$", event.line):
                self.deletions.append((index, places.pop(match[1])))
            elif event.line.startswith("unplugged for "):
                self.cuts.append(index)
        self.kept = set(places.values())

    def later_deletion(self, moment):
        """The index of the first deletion of a message that arrived after this event."""
        return next((i for i, of in self.deletions if of > moment), None)

    def time_at(self, index):
        return float("inf") if index is None else self.history[index].time


@dataclasses.dataclass
class Kept:
    """A message, or a part of one, that is in the store at the end."""
    message: str
    arrival: int  # index of the event
    next_list: int  # index of the first sign that a list later than the one that named it was complete
    deleting: tuple  # seconds between which its deletion can have been tried
    may_be_cut: bool  # not delivered
    may_be_left: bool  # delivered, or a part of a message of which another part is missing


@dataclasses.dataclass
class Cut:
    """A list may have been under way when this event happened."""
    index: int


def kept_messages(store, wanted, got):
    parts = collections.Counter(wanted.values())
    for index, text in store.arrivals:
        message = wanted.get(text)
        if index not in store.kept or message is None:
            continue
        # A list names all that arrived before it, and the next list follows when all of these have
        # been deleted. The first deletion of a later message may belong to the same list; the first
        # deletion of a message that arrived after that one does not.
        first = store.later_deletion(index)
        second = None if first is None else store.later_deletion(first)
        yield Kept(message, index, len(store.history) if first is None else first,
                   (store.history[index].time, store.time_at(second)),
                   message not in got, message in got or parts[message] > 1)


def explains_kept(kept, excuse):
    if isinstance(excuse, Cut):
        # A later message that was deleted before the cut was listed before it, and so was this one.
        return kept.may_be_cut and kept.arrival < excuse.index <= kept.next_list
    return kept.may_be_left and touches(excuse, *kept.deleting)


def refused_deletions(store, faults):
    """These orders wait for the next AT+CMGD, so they have had their effect when a later deletion
    succeeds."""
    times = [store.history[index].time for index, _ in store.deletions]
    for fault in faults:
        if fault.kind == "CMGD refused":
            later = bisect.bisect(times, fault.start + LAG)
            yield Span(fault.kind, fault.start, times[later] if later < len(times) else fault.end)


def check_received(modem, program, faults, wanted, last=None):
    """Each message entered the store, and is delivered once or still in the store.
    wanted: the text of each message by the text of each of its parts; last: the message whose
    deletion may be under way."""
    store = Store(modem)
    got = collections.Counter(event.line.removeprefix("got ") for event in program
                              if event.line.startswith("got "))
    complaints = [f"delivered {n} times: {text}" for text, n in got.items() if n > 1]
    texts = [text for _, text in store.arrivals]
    complaints += [f"unknown in the store: {text}" for text in texts if text not in wanted]
    complaints += [f"never entered the store: {text}" for text in wanted.keys() - set(texts)]
    kept = [each for each in kept_messages(store, wanted, got) if each.message != last]
    silences = [fault for fault in prolonged(faults, program) if fault.kind in SILENCES]
    left = unexplained(
        kept, [*map(Cut, store.cuts), *refused_deletions(store, faults), *silences],
        lambda excuse: (MOST_LISTED if isinstance(excuse, Cut) else
                        excuse.times if excuse.kind == "CMGD refused" else failures_of(excuse)),
        explains_kept)
    complaints += [f"in the store at the end, and no fault explains it: {each.message}"
                   for each in left]
    arrived = {wanted[text] for text in texts if text in wanted}
    in_store = {wanted.get(text) for index, text in store.arrivals if index in store.kept}
    complaints += [f"delivered, but never in the store: {text}" for text in got.keys() - arrived]
    complaints += [f"deleted, but never delivered: {text}"
                   for text in arrived - got.keys() - in_store]
    return complaints, {
        "messages received": len(got),
        "parts left in the store because the list that named them was lost":
            sum(each.may_be_cut for each in kept),
        "messages delivered whose deletion failed": sum(not each.may_be_cut for each in kept),
    }
