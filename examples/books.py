#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Compares a program's store of messages with what telephones and mailboxes have really received.

books.py CORVANE STORE PHONE MAILS: STORE is the file messages.db, PHONE what `corvane modem` printed, MAILS the
folder of mail_sink.py. It prints what was sent, delivered, repeated and lost. Exit status 1: something was lost,
or arrived more often than the store says. Texts of one line only.
"""
import argparse
import collections
import email
import json
import pathlib
import re
import subprocess
import sys

SENT = re.compile(r"^sent to (\S+)(?: in \d+ parts)?: (.*)$", re.MULTILINE)
RECEIVED = re.compile(r"^received, [^:]*: from (\S+) at \S+: (.*)$", re.MULTILINE)


def ask(corvane, store, *words):
    """The objects that `corvane messages` gives."""
    command = [corvane, "messages", "--store", store, "--json", *words]
    answer = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    return [json.loads(line) for line in answer.splitlines()]


def rows_of(corvane, store):
    """All messages of the store, each with its content."""
    listed = ask(corvane, store, "list", "--all")
    return [ask(corvane, store, "show", str(row["id"]))[0] for row in listed]


def sms_sent(row):
    return row["receiver"], row["content"]["text"]


def mail_sent(row):
    return row["content"]["message_id"]


def mails_in(folder):
    return [email.message_from_bytes(file.read_bytes())["Message-ID"] for file in sorted(folder.glob("*.eml"))]


def is_delivered(row):
    """As its delivery reports say (3GPP TS 23.040 clause 9.2.3.15); a mail has none."""
    return all(part.get("status") == 0 for part in row["progress"]["parts"])


class Books:
    def __init__(self, rows):
        self.sms = [row for row in rows if row.get("channel") == "sms" and row["direction"] == "out"]
        self.mails = [row for row in rows if row.get("channel") == "mail"]
        self.incoming = [row for row in rows if row["direction"] == "in"]
        self.repeated, self.lost, self.doubled = [], [], []

    def compare(self, rows, identity, arrived, what):
        """What was sent once may arrive once more for each attempt whose end the store does not know."""
        arrivals = collections.Counter(arrived)
        groups = collections.defaultdict(list)
        for row in rows:
            groups[identity(row)].append(row)
        for key, group in groups.items():
            count, waits = arrivals.pop(key, 0), [row for row in group if row["state"] != "sent"]
            name = f"{what} {group[0]['id']} to {group[0]['receiver']}"
            unknown = sum(row["unknown_ends"] for row in group)
            if waits:
                self.lost.append(f"{name} is not sent: {waits[0]['state']}, {waits[0]['reason']}")
            elif count < len(group):
                self.lost.append(f"{name} counts as sent, but has not arrived")
            elif count > len(group) + unknown:
                self.doubled.append(f"{name} arrived {count} times")
            elif count > len(group):
                self.repeated.append(f"{name}, arrived {count} times: {group[0]['reason']}")
        self.doubled += [f"{what} that the store does not know: {key}" for key in arrivals]

    def compare_incoming(self, arrived):
        kept = collections.Counter((row["sender"], row["text"]) for row in self.incoming)
        arrived = collections.Counter(arrived)
        self.lost += [f"SMS from {sender} is not in the store: {text}" for sender, text in (arrived - kept).elements()]
        self.doubled += [f"SMS from {sender} is in the store again: {text}" for sender, text in (kept - arrived).elements()]
        self.lost += [f"SMS {row['id']} from {row['sender']} was not accepted"
                      for row in self.incoming if row["state"] != "accepted"]

    def __str__(self):
        sent = [sum(row["state"] == "sent" for row in rows) for rows in (self.sms, self.mails)]
        delivered = sum(is_delivered(row) for row in self.sms if row["state"] == "sent")
        return "\n".join([
            f"sent      {sent[0]} SMS, {sent[1]} e-mail",
            f"delivered {delivered} SMS, as their delivery reports say; {sent[1]} e-mail, as the mail server says",
            f"received  {len(self.incoming)} SMS",
            f"repeated  {'; '.join(self.repeated) or 'nothing'}",
            f"lost      {'; '.join(self.lost) or 'nothing'}",
            f"doubled   {'; '.join(self.doubled) or 'nothing'}"])


def compare(corvane, store, phone, mails):
    """The books of a store, compared with the text that the simulated modem printed and a folder of mails."""
    books = Books(rows_of(corvane, store))
    books.compare(books.sms, sms_sent, SENT.findall(phone), "SMS")
    books.compare(books.mails, mail_sent, mails_in(mails), "e-mail")
    books.compare_incoming(RECEIVED.findall(phone))
    return books


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("corvane", help="the command")
    parser.add_argument("store", help="messages.db")
    parser.add_argument("phone", type=pathlib.Path, help="what `corvane modem` printed")
    parser.add_argument("mails", type=pathlib.Path, help="the folder of mail_sink.py")
    options = parser.parse_args()
    books = compare(options.corvane, options.store, options.phone.read_text(encoding="utf-8"), options.mails)
    print(books)
    return 1 if books.lost or books.doubled else 0


if __name__ == "__main__":
    sys.exit(main())
