# SPDX-License-Identifier: MIT
"""The messages of a long run: those that soak.lua sends, and those that it receives."""
import collections
import time

from processes import Violated

SENDER = "+4915112345678"
UNREAD_AT_ONCE = 6  # messages that wait for the program
MOST_KEPT = 200  # of the store's 255 places, those that leftovers of faults may occupy
LONG_EVERY = 25
MOST_LONG = 200  # the reference that joins the parts has 8 bits
PART_LENGTH = 67  # UCS-2 characters after the header
LONG_TEXT = ("давление в котле выше допустимого, насос остановлен; "
             "задвижка закрыта, ждём ответа")


def parts_of(number):
    return 2 if number.startswith("1777") else 1


def text_of(number):
    """The text, as soak.lua writes it."""
    if number.startswith("1777"):
        return (f"Насос {number} остановлен: давление 9,1 бар, выше допустимого; "
                "задвижка закрыта.")
    return f"Pump {number} is switched on"


class Feeder:
    """Sends messages to the modem, as fast as the program keeps up."""

    def __init__(self, program, modem, stopping):
        self.program, self.modem, self.stopping = program, modem, stopping
        self.wanted = {}  # what is to be delivered, by the text of each of its parts
        self.given = 0
        self.delivered = set()
        self.kept = 0  # occupied places of the store
        self.seen = [0, 0]  # lines of the program and of the modem
        self.latest = collections.deque(maxlen=20)  # the last ones that were given

    def look(self):
        for event in self.new_lines(0, self.program.output):
            if event.line.startswith("got "):
                text = event.line.removeprefix("got ")
                if text in self.delivered:
                    raise Violated(f"delivered twice: {text}")
                self.delivered.add(text)
        for event in self.new_lines(1, self.modem.output):
            self.kept += event.line.startswith("received, place ")
            self.kept -= event.line.startswith("deleted place ")

    def new_lines(self, which, history):
        lines = history[self.seen[which]:]
        self.seen[which] += len(lines)
        return lines

    def give(self):
        self.given += 1
        parts = [f"Message {self.given} from the plant"]
        if self.given % LONG_EVERY == 0 and self.given <= LONG_EVERY * MOST_LONG:
            # Each part names its message, since a single part may stay in the store.
            text = f"Сообщение {self.given}: {LONG_TEXT} ({self.given})"
            parts = [text[:PART_LENGTH], text[PART_LENGTH:]]
        whole = f"{SENDER} {''.join(parts)}"
        self.wanted.update(dict.fromkeys(parts, whole))
        self.latest.append(whole)
        self.modem.say("receive " + whole)
        return whole

    def run(self):
        last = time.monotonic()
        while not self.stopping.wait(0.01):
            self.look()
            under_way = [text for text in self.latest if text not in self.delivered]
            if under_way and time.monotonic() - last > 5:  # perhaps a fault left it in the store
                self.latest.remove(under_way.pop(0))
            if self.kept < MOST_KEPT and len(under_way) < UNREAD_AT_ONCE:
                self.give()
                last = time.monotonic()
