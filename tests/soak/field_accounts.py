# SPDX-License-Identifier: MIT
"""Checks what became of what a program ordered, when the program was killed again and again, its peers failed, and
its disk was full. Each function returns complaints, as texts; none if all is well.

Three books are compared: what the program has printed (before it gave an order, and when it saw an outcome), what the
peers got, and what the store says. What the store holds is sent exactly once, or as often again as it names an end
that is not known."""
import bisect
import collections
import dataclasses
import re

from excuses import SILENCES, failures_of

WAITING, SENT, FAILED, EXPIRED = range(4)  # states in the store
ATTACHMENT, REFUSED_MAIL, REFUSED_RECIPIENT, UNKNOWN_END = 15, 34, 30, 23
RETAIN_LAG = 5  # seconds that retained values may be old: one that is allowed, and a busy machine's
COUNT_EVERY = 20  # cycles, as in field_soak.lua
MAILS = ("plain", "login", "tls")  # the blocks for mails
FULL, FULL_AND_KILLED = "disk full", "killed while the disk was full"


@dataclasses.dataclass
class Order:
    times: list = dataclasses.field(default_factory=list)  # when it was given; more than once after a restart
    stored: bool = False  # the program has seen that it is on the disk
    unstored: bool = False  # the program has seen that it is not
    ends: list = dataclasses.field(default_factory=list)  # [(done or error, ErrorId)]

    @property
    def settled(self):
        return self.stored or bool(self.ends)


@dataclasses.dataclass
class Row:
    """A message in the store."""
    state: int
    unknown_ends: int
    error_id: int = 0


def orders_of(program):
    """{name of the block: {number: Order}}"""
    orders = collections.defaultdict(lambda: collections.defaultdict(Order))
    for event in program:
        if match := re.match(r"(order|stored|unstored|end) (\S+) (\d+) ?(\w*) ?(\d*)", event.line):
            order = orders[match[2]][int(match[3])]
            if match[1] == "order":
                order.times.append(event.time)
            elif match[1] == "end":
                order.ends.append((match[4], int(match[5])))
            else:
                setattr(order, match[1], True)
    return orders


def is_durable(name):
    """Whether this block keeps what it is given."""
    return name in MAILS or name.startswith("sms")


def has_key(number):
    return number % 2 == 0


def open_orders(numbers):
    """Those that a program gives again after a restart: their key lets the store tell that it knows them."""
    return [number for number, order in sorted(numbers.items()) if has_key(number) and not order.settled]


@dataclasses.dataclass
class Delivery:
    """One receiver's message, in all three books."""
    what: str
    order: Order
    keyed: bool
    rows: list  # of the store
    arrivals: list  # times at which the peer got it
    refused: bool = False  # the peer has said that it never takes it

    def touches(self, spans):
        """How many of them can have lost or doubled it."""
        times = self.order.times + self.arrivals
        return sum(span.start <= max(times) and min(times) <= span.end for span in spans) if times else 0


def check_delivery(delivery, lawless):
    """lawless: spans in which neither the store could write, nor the program tell."""
    if len(delivery.rows) > 1:
        return [f"{delivery.what} is in the store {len(delivery.rows)} times"]
    excused = delivery.touches(lawless)
    if not delivery.rows:
        return check_unknown_to_the_store(delivery, excused)
    row, count = delivery.rows[0], len(delivery.arrivals)
    most = 1 + row.unknown_ends + excused
    if row.state == SENT:
        least = 0 if delivery.refused else 1
    elif row.state == FAILED and row.error_id == UNKNOWN_END and row.unknown_ends == 2:
        least, most = 0, 2 + excused
    elif row.state == FAILED and row.error_id == ATTACHMENT and delivery.order.unstored and not delivery.order.stored:
        least = 0  # the attachment was in memory only, as its block had said
    elif row.state == FAILED and delivery.refused and row.error_id in (REFUSED_MAIL, REFUSED_RECIPIENT):
        least = 0
    else:
        return [f"{delivery.what}: state {row.state}, error {row.error_id}, {row.unknown_ends} unknown ends; "
                f"it arrived {count} times"]
    if not least <= count <= most:
        return [f"{delivery.what} arrived {count} times, not {least} to {most}; state {row.state}"]
    return []


def check_unknown_to_the_store(delivery, excused):
    if excused:
        return []
    if delivery.order.stored:
        return [f"{delivery.what} was stored, and is not in the store"]
    if delivery.keyed and delivery.order.times:
        return [f"{delivery.what} was ordered until it is stored, and is not in the store"]
    if delivery.arrivals:
        return [f"{delivery.what} arrived, but is not in the store"]
    return []


def check_sms(orders, rows, modem, faults, kills):
    """orders: {number: Order} of a block; rows: {receiver: [Row]}; modem: what the simulator has printed."""
    arrivals, parts = collections.defaultdict(list), collections.defaultdict(list)
    complaints = []
    for event in modem:
        if match := re.match(r"sent to \+(\d+)(?: in \d+ parts)?: (.*)$", event.line):
            arrivals[match[1]].append(event.time)
            if match[2] != text_of(match[1]):
                complaints.append(f"another text: {event.line}")
        elif match := re.match(r"part (\d+) of (\d+) to \+(\d+)$", event.line):
            parts[match[3]].append((int(match[1]), event.time))
    deliveries = {}
    for name, numbers in orders.items():
        for number, order in numbers.items():
            if name.startswith("sms"):
                for receiver in receivers_of(int(name[3:]), number):
                    deliveries[receiver] = Delivery(f"the message to +{receiver}", order, has_key(number),
                                                    rows.get(receiver, []), arrivals[receiver])
    for delivery in deliveries.values():
        complaints += check_delivery(delivery, lawless_spans(faults))
    for receiver in (arrivals.keys() | rows.keys()) - deliveries.keys():
        complaints.append(f"a message to +{receiver}, which nobody ordered")
    unknown = sum(row.unknown_ends for found in rows.values() for row in found)
    explained = len(kills) + sum(failures_of(fault) for fault in faults if fault.kind in SILENCES)
    if unknown > explained:
        complaints.append(f"{unknown} unknown ends of messages, but at most {explained} that anything explains")
    for receiver, found in parts.items():
        if receiver in deliveries:
            complaints += check_parts(deliveries[receiver], found, lawless_spans(faults))
    return complaints, {"messages ordered": len(deliveries), "messages sent": sum(map(len, arrivals.values())),
                        "messages whose end was unknown": unknown,
                        "messages sent again": sum(len(times) > 1 for times in arrivals.values())}


def check_parts(delivery, parts, lawless):
    """parts: [(number, time)] of a message that consists of several."""
    [row, *_] = delivery.rows or [Row(SENT, 2)]
    delivery = dataclasses.replace(delivery, arrivals=[time for _, time in parts])
    most = 1 + row.unknown_ends + delivery.touches(lawless)
    return [f"part {part} of {delivery.what} went out {times} times, not at most {most}"
            for part, times in collections.Counter(part for part, _ in parts).items() if times > most]


def receivers_of(digit, number):
    return [f"{prefix}{digit}{number:06d}" for prefix in (["1555", "1666"] if number % 7 == 0 else ["1555"])]


def text_of(receiver):
    """As field_soak.lua writes it."""
    if int(receiver[5:]) % 3 == 0:
        return f"Насос {receiver[4:]} остановлен: давление 9,1 бар, выше допустимого; задвижка закрыта."
    return f"Pump {receiver[4:]} is switched on"


def lawless_spans(faults):
    return [fault for fault in faults if fault.kind == FULL_AND_KILLED]


def check_mails(orders, rows, attempts, faults, kills):
    """rows: {mail: [Row]}; attempts: of the mail servers."""
    complaints = [f"mail {attempt.mail}: {attempt.problem}" for attempt in attempts if attempt.problem]
    by_mail = collections.defaultdict(list)
    for attempt in attempts:
        by_mail[attempt.mail].append(attempt)
    known = {}
    for name, numbers in orders.items():
        if name in MAILS:
            known |= {f"{name}-{number}": (number, order) for number, order in numbers.items()}
    delivered = 0
    for mail, (number, order) in known.items():
        for recipient in ["op-" + mail] + (["chief-" + mail] if number % 3 == 0 else []):
            tried = by_mail[mail]
            delivery = Delivery(
                f"the mail {mail} to {recipient}", order, has_key(number), rows.get(mail, []),
                [attempt.start for attempt in tried if attempt.taken and recipient in attempt.recipients],
                any(recipient in attempt.refused for attempt in tried))
            # A row that has failed for one recipient only has been sent to the other.
            complaints += check_delivery(partly_refused(delivery, tried), lawless_spans(faults))
            delivered += len(delivery.arrivals)
        complaints += check_unknown_ends(mail, rows.get(mail, []), by_mail[mail], kills, lawless_spans(faults))
    complaints += [f"the mail {mail}, which nobody ordered" for mail in (by_mail.keys() | rows.keys()) - known.keys()]
    return complaints, {"mails ordered": len(known), "mails delivered": delivered,
                        "mails that were refused for good": sum(any(a.refused for a in tried) for tried in by_mail.values()),
                        "mails whose end was unknown": sum(row.unknown_ends for found in rows.values() for row in found)}


def partly_refused(delivery, tried):
    """A mail that failed for one of its recipients has been sent to the other."""
    [row] = delivery.rows if len(delivery.rows) == 1 else [Row(WAITING, 0)]
    if row.state != FAILED or row.error_id not in (REFUSED_MAIL, REFUSED_RECIPIENT) or delivery.refused:
        return delivery
    if not any(attempt.refused for attempt in tried):
        return delivery
    return dataclasses.replace(delivery, rows=[Row(SENT, row.unknown_ends)])


def check_unknown_ends(mail, rows, tried, kills, lawless):
    """The store may call an end unknown only if the reply to the final dot can have been lost."""
    lost = sum(attempt.fault[1] in ("text", "middle") and attempt.fault[0] in ("close", "hang")
               or any(attempt.start - 1 <= kill <= attempt.end + 1 for kill in kills)
               or any(span.start - 1 <= attempt.end and attempt.start <= span.end for span in lawless) for attempt in tried)
    return [f"the mail {mail}: {row.unknown_ends} unknown ends, but {lost} lost replies"
            for row in rows if row.unknown_ends > lost]


def check_inbox(program, given):
    """given: the texts that were sent to the modem, each once. A message that was not accepted when the program
    ended is the first one of the next run."""
    complaints, seen = [], {}
    last, is_first = None, False
    for event in program:
        if event.line.startswith("kept "):
            is_first = True
        if match := re.match(r"got (\d+) (\d+) (\S+) (.*)$", event.line):
            message = int(match[1]), match[4]
            if match[2] != "0" or match[4] not in given:
                complaints.append(f"another message: {event.line}")
            if message == last and is_first:
                pass  # it was not accepted
            elif match[4] in seen:
                complaints.append(f"offered again: {event.line}")
            elif last and message[0] <= last[0]:
                complaints.append(f"not in their order: {event.line} after {last[0]}")
            seen[match[4]] = event.time
            last, is_first = message, False
    complaints += [f"never offered: {text}" for text in given if text not in seen]
    return complaints, {"messages received": len(seen)}


def check_once(name, orders, got, most_of=lambda order: 1):
    """Of what nobody repeats: done means once, and anything else at most once."""
    counts = collections.Counter(got)
    complaints = [f"{name} {number}: nobody ordered it" for number in counts.keys() - orders.keys()]
    for number, order in orders.items():
        least = ("done", 0) in order.ends
        if not least <= counts[number] <= 1:
            complaints.append(f"{name} {number} came {counts[number]} times; its end: {order.ends}")
    return complaints, {name + " jobs": len(orders),
                        name + " jobs that failed": sum(any(end[0] == "error" for end in order.ends)
                                                       for order in orders.values())}


def check_retained(program, kills, faults):
    """The values never fall behind what they were RETAIN_LAG before the end of a run, nor run ahead of it."""
    complaints, counts = [], []
    times = []
    for event in program:
        if match := re.match(r"kept (\d+)$", event.line):
            value, least = int(match[1]), 0
            if times:
                until = sure_until(times[-1], kills, faults)
                least = counts[max(0, bisect.bisect_right(times, until) - 1)]  # the first one came from the disk
            most = counts[-1] + COUNT_EVERY if counts else 0
            if not least <= value <= most:
                complaints.append(f"retained {value}, not {least} to {most}")
            times, counts = [event.time], [value]
        elif match := re.match(r"count (\d+)$", event.line):
            times.append(event.time)
            counts.append(int(match[1]))
    return complaints


def sure_until(end, kills, faults):
    """The time until which values were kept, in a run that ended then."""
    if not any(abs(kill - end) < 2 for kill in kills):
        return end - 0.5  # it was asked to end, and has had time for it
    until = end - RETAIN_LAG
    for fault in faults:
        if fault.kind in (FULL, FULL_AND_KILLED) and fault.start - RETAIN_LAG <= until <= fault.end + RETAIN_LAG:
            until = min(until, fault.start - RETAIN_LAG)
    return until


def check_schedule(program, minutes, kills):
    """minutes: seconds since 1970 at which the schedule was due. What fired less than a few seconds before a kill may
    not have been kept, and fires again."""
    fired = collections.defaultdict(list)
    for event in program:
        if match := re.match(r"fired (\d+)$", event.line):
            fired[int(match[1]) // 60 * 60].append(event.time)
    complaints = [f"the schedule did not fire at {minute}" for minute in minutes if minute not in fired]
    for minute, times in fired.items():
        excuses = sum(times[0] <= kill <= times[-1] and kill - times[0] < RETAIN_LAG + 60 for kill in kills)
        if len(times) > 1 + excuses:
            complaints.append(f"the schedule fired {len(times)} times at {minute}")
    return complaints, {"minutes at which the schedule fired": len(fired)}


def check_wrong(program):
    return [event.line for event in program if event.line.startswith("wrong: ")]


def check_hung(orders):
    return [f"a hung command ended with {order.ends}" for order in orders.values()
            if order.ends and order.ends != [("error", 41)]]


def check_log(log):
    return [f"in the log: {event.line}" for event in log
            if re.search(r"Sanitizer|runtime error:|terminate called|[Aa]ssertion|damaged", event.line)]
