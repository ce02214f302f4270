#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""composed_mails.py COMPOSE_MAIL: mails that we compose, read back by Python's email package: nothing is
lost or added, and the reader finds no defect. Random inputs; the seed is printed when one fails."""
import datetime
import email
import email.header
import email.policy
import email.utils
import random
import re
import sys

import mail_composer
from mail_composer import quoted

ROUNDS = 400
def read(octets):
    """The mail as Python reads it, without a defect in any part or field."""
    mail = email.message_from_bytes(octets, policy=email.policy.default)
    for part in mail.walk():
        assert not part.defects, (part.defects, octets)
        for name, value in part.items():
            assert not value.defects, (name, value, value.defects, octets)
    return mail


def names_and_addresses(field):
    return [(address.display_name, address.addr_spec) for address in field.addresses]


def body_of(part):
    return part.get_payload(decode=True).decode(part.get_content_charset())


def on_the_way(text):
    """A text with the line ends that mail has."""
    return re.sub("\r?\n", "\r\n", text)


class Inputs:
    """Random inputs of one mail, from the plainest to the oddest."""

    LETTERS = ["abcdefghijklmnopqrstuvwxyz ABC 0123456789", "aeiou \u00fc\u00df\u00e9 .,;:\"\\()<>[]@=?_-'!%*",
               "\u041f\u0430\u0441\u043e\u0441 \u6f22\u5b57\u30ab \u0391\u03b8 \u0639\u0631",
               "a \U0001f525\u20ac\u00a0\u200b\u202e\ufeff\u0301=?_ =?utf-8?q?x?= \t"]

    def __init__(self, seed):
        self.random = random.Random(seed)

    def text(self, longest, more=""):
        letters = self.random.choice(self.LETTERS) + more
        return "".join(self.random.choice(letters) for _ in range(self.random.randrange(longest)))

    def body(self):
        """Lines short and long, with all that is risky in them."""
        risky = ["", ".", "..", ". x", "From x", ">From x", "-- ", "x ", "\t", "=", "=3D", "--=_m0123456789plantexample--",
                 "x\ry", "\r", "\x1b[0m", "\x0c", "x" * 3000, "\u20ac" * 400, "=" * 100]
        lines = [self.random.choice(risky) if self.random.random() < 0.3 else self.text(120) for _ in range(self.random.randrange(12))]
        return "".join(line + self.random.choice(["\n", "\r\n"]) for line in lines) + self.text(30)

    def name(self):
        # Python leaves out blanks at the ends of a name, joins several of them, and does not leave out the
        # blank between two encoded words, so names are short enough for one. Longer ones: see below.
        return " ".join(self.text(40).split()).encode()[:21].decode(errors="ignore").strip()

    def addresses(self, prefix):
        domains = ["plant.example", "a.b.c.example", "[192.0.2.1]", "[IPv6:2001:db8::1]"]
        return [(self.name(), f"{prefix}{number}@{self.random.choice(domains)}")
                for number in range(self.random.randrange(1, 5))]

    def attachment(self):
        name = self.text(100).replace("/", "").strip() or "x"
        return {"name": name + self.random.choice([".pdf", ".csv", ".bin", ""]),
                "octets": list(self.random.randbytes(self.random.randrange(3000)))}


def what_goes_in_comes_out(compose):
    for seed in range(ROUNDS):
        inputs = Inputs(seed)
        subject, text, html = inputs.text(200), inputs.body(), inputs.body()
        if inputs.random.random() < 0.3:
            html = ""
        lists = {field: inputs.addresses(field) for field in ("to", "cc", "reply_to")}
        attachments = [inputs.attachment() for _ in range(inputs.random.randrange(3))]
        sender = (inputs.name(), "pump3@plant.example")
        date = inputs.random.randrange(0, 4_000_000_000)
        zone = inputs.random.randrange(-720, 840)
        octets = compose(subject=subject, text=text, html=html, attachments=attachments, date=date, zone_minutes=zone,
                         **{"from": quoted(*sender)},
                         **{field: ";".join(quoted(*address) for address in pairs) for field, pairs in lists.items()})
        try:
            mail = read(octets)
            assert mail["Subject"] == subject, (mail["Subject"], subject)
            assert names_and_addresses(mail["From"]) == [sender], (mail["From"], sender)
            for field, pairs in lists.items():
                found = names_and_addresses(mail[field.replace("_", "-")])
                assert found == pairs, (field, found, pairs)
            assert mail["Date"].datetime == datetime.datetime.fromtimestamp(
                date, datetime.timezone(datetime.timedelta(minutes=zone))), mail["Date"]
            check_bodies(mail, text, html, attachments)
        except Exception:
            print(f"seed {seed}:\n{octets.decode(errors='replace')}", file=sys.stderr)
            raise


def check_bodies(mail, text, html, attachments):
    def same(part, expected):
        found, expected = body_of(part), on_the_way(expected)
        # A mail that is one text ends with a line end.
        return found == expected or (not mail.is_multipart() and found == expected + "\r\n")
    plain, rich = mail.get_body(["plain"]), mail.get_body(["html"])
    assert same(plain, text) if plain else text == "", (body_of(plain), text)
    assert same(rich, html) if rich else html == "", (rich, html)
    assert plain or rich
    found = [(part.get_filename(), part.get_payload(decode=True)) for part in mail.iter_attachments()]
    assert found == [(attachment["name"], bytes(attachment["octets"])) for attachment in attachments], found


def long_names_come_out(compose):
    """As Python's other decoder reads them, which joins encoded words as RFC 2047 clause 6.2 says."""
    for seed in range(ROUNDS):
        name = " ".join(Inputs(seed).text(100).encode()[:255].decode(errors="ignore").split())
        raw = email.message_from_bytes(compose(**{"from": quoted(name, "pump3@plant.example")}))["From"]
        shown, mailbox = email.utils.parseaddr(re.sub("\r\n", "", raw))
        assert mailbox == "pump3@plant.example", raw
        assert str(email.header.make_header(email.header.decode_header(shown))) == name, (seed, raw, name)


def no_input_adds_a_field(compose):
    """The header has exactly the fields that it should, whatever the inputs contain."""
    evil = "x\r\nBcc: spy@plant.example\nX-Evil: 1\r\r\n\r\nbody =?utf-8?q?=0D=0ABcc:_a@b?="
    octets = compose(subject=evil, text=evil, html=evil,
                     attachments=[{"name": evil, "octets": [0]}, {"name": "", "octets": []}],
                     **{field: quoted(evil, "a@plant.example") for field in ("from", "to", "cc", "reply_to")})
    mail = read(octets)
    assert mail.keys() == ["Date", "From", "To", "Cc", "Reply-To", "Subject", "Message-ID", "MIME-Version",
                           "X-Mailer", "Auto-Submitted", "Content-Type"], mail.keys()
    assert mail["Subject"] == re.sub("\r\n|\r|\n", " ", evil), mail["Subject"]
    first, second = mail.iter_attachments()
    assert first.get_filename() == mail["Subject"], first.get_filename()
    assert second.get_filename() is None, second.get_filename()


def blind_copies_alone_show_nobody(compose):
    mail = read(compose(to="", text="x"))
    assert str(mail["To"]) == "undisclosed-recipients:;" and mail["Bcc"] is None, mail.items()


def addresses_in_utf8(compose):
    """They are there if the server takes them, else what they are can still be read."""
    message = {"to": '"J\u00f6rg" <j\u00f6rg@b\u00fccher.example>, c@plant.example', "text": "x"}
    mail = email.message_from_string(compose(smtputf8=True, **message).decode(), policy=email.policy.SMTPUTF8)
    assert names_and_addresses(mail["To"]) == [
        ("J\u00f6rg", "j\u00f6rg@xn--bcher-kva.example"), ("", "c@plant.example")], mail["To"]
    octets = compose(**message)
    assert octets.isascii()
    mail = read(octets)
    assert names_and_addresses(mail["To"]) == [("", "c@plant.example")], mail["To"]
    assert mail["To"].groups[0].display_name == "J\u00f6rg <j\u00f6rg@xn--bcher-kva.example>", mail["To"]


with mail_composer.Composer(sys.argv[1]) as composer:
    what_goes_in_comes_out(composer)
    long_names_come_out(composer)
    no_input_adds_a_field(composer)
    blind_copies_alone_show_nobody(composer)
    addresses_in_utf8(composer)
