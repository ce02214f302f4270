# SPDX-License-Identifier: MIT
"""What injected faults can explain. Each consequence is charged to one fault, and no fault is charged
with more than it can have caused: since faults never rest for long, a fault close by proves little."""
import dataclasses
import math
import re

LAG = 2  # seconds from an event to the line that reports it, on a slow machine
STEP = 2  # seconds that the port allows an exchange, and a lost device to come back
PATIENCE = 10  # seconds that it allows a text and a list; set in soak.py
MAIL_WAIT = 11  # seconds for which a dead mail server holds the program's cycle, and a little more
# Otherwise the memory would grow until the sanitizer's store of freed blocks is full, and the leak check of GCC 12
# takes thread-local memory at some addresses for another format, and crashes.
SANITIZER = "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:intercept_tls_get_addr=0"
STALLED = "machine stalled"  # long enough for an answer to have been late
SILENCES = ("unplugged", "muted", "output held", "restarted", STALLED)


@dataclasses.dataclass
class Span:
    """A fault, and the time in which it may have had an effect."""
    kind: str
    start: float
    end: float
    times: int = 1  # for orders to refuse a command: how often
    idle: float = 0  # seconds before its end in which the port did nothing


def overlaps(spans, start, end, *kinds):
    return any(span.kind in kinds and touches(span, start, end) for span in spans)


def touches(span, start, end):
    """Whether it can have caused what is reported between start and end. A fault is noted before it
    happens, everything else when a line reports it."""
    return span.start <= end and start <= span.end + LAG


def unexplained(claims, excuses, times_of, fits):
    """The claims that are left when each excuse explains up to `times_of` of those that it fits. They
    are assigned to the excuses so that as few as possible are left (augmenting paths)."""
    explained = [[] for _ in excuses]

    def place(claim, tried):
        for index, excuse in enumerate(excuses):
            if index in tried or not fits(claim, excuse):
                continue
            tried.add(index)
            if len(explained[index]) < times_of(excuse):
                explained[index].append(claim)
                return True
            for i, other in enumerate(explained[index]):
                if place(other, tried):
                    explained[index][i] = claim
                    return True
        return False
    return [claim for claim in claims if not place(claim, set())]


def failures_of(fault):
    """How many exchanges with the modem it can spoil: the one under way, and those that time out."""
    return 1 + math.ceil((fault.end - fault.idle - fault.start) / STEP)


def mails_of(fault):
    """How many mails can fail at once while it lasts: the block's worker looks every 100 ms."""
    return 2 + int((fault.end - fault.start) / 0.1)


def prolonged(faults, program, delay=0):
    """The faults, extended by the time that the program may take to notice them, beyond the delay with which
    it always may. The port has to wait for the cycle, which a dead mail server holds; without a descriptor no
    modem can be opened."""
    held = [Span("held", event.time - MAIL_WAIT, event.time) for event in program
            if re.match(r"mail \d+ 402$", event.line)]
    starved = [fault for fault in faults if fault.kind == "no descriptors"]
    result = []
    for fault in faults:
        end = latest_end(fault, starved if fault.kind == "unplugged" else [])
        noticed = latest_end(dataclasses.replace(fault, end=end + delay), held) - delay
        result.append(dataclasses.replace(fault, end=noticed, idle=noticed - end))
    return result


def latest_end(fault, delays):
    return max([fault.end, *(delay.end for delay in delays
                             if touches(delay, fault.start, fault.end))])
