#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_readers.py PROJECT CORVANE COMPOSE_MAIL: what mutt, munpack and SpamAssassin's local rules think of the
mails that we compose."""
import email.mime.text
import email.utils
import os
import pty
import re
import subprocess
import sys
import tempfile
import time

import mail_composer
import mail_servers

project, corvane, compose_mail = sys.argv[1:]
PDF = bytes(range(256)) * 40
CSV = b"time;level\r\n12:00;2,4\r\n"
LOCAL_CSV = CSV.replace(b"\r\n", b"\n")  # as these readers write a text
EVERYTHING = {
    "from": "J\u00fcrgen M\u00fcller <pump3@plant.example>",
    "to": '"Doe, John" <john@plant.example>; M\u00fchle <muehle@m\u00fchle.example>',
    "cc": "desk@plant.example",
    "subject": "F\u00fcllstand zu hoch: 2,4 m \u2265 2,3 m; bitte sofort pr\u00fcfen und die Pumpe 3 ausschalten",
    "text": "Pegel \u2265 2,3 m\n.\n..x\nFrom here\n" + "x" * 1200 + "\nend \u6f22",
    "html": "<p>Pegel \u2265 <b>2,3 m</b></p>",
    "date": 1_790_000_000, "zone_minutes": 60,
    "attachments": [{"name": "\u00dcbersicht 3.pdf", "octets": list(PDF)}, {"name": "levels.csv", "octets": list(CSV)}]}


def run_in_terminal(command, folder):
    """Runs a program that wants a terminal until it ends by itself."""
    process, terminal = pty.fork()
    if process == 0:
        os.environ.update(TERM="vt100", LC_ALL="C.UTF-8", HOME=folder)
        os.execvp(command[0], command)
    try:
        while os.read(terminal, 4096):
            pass
    except OSError:  # its end closed the terminal
        pass
    _, status = os.waitpid(process, 0)
    os.close(terminal)
    assert status == 0, (command, status)


def content(path):
    with open(path, "rb") as file:
        return file.read()


def mutt_reads_it(octets):
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/box", "wb") as file:
            file.write(b"From x Thu Jan  1 00:00:00 1970\n" + octets.replace(b"\r\n", b"\n") + b"\n")
        settings = f"set folder={folder} pipe_decode=yes charset=utf-8 wait_key=no"
        # In the list of the parts, the attachments are the fourth and the fifth.
        keys = (f"<pipe-message>cat > {folder}/text<enter><view-attachments>"
                f"4<enter><pipe-entry>cat > {folder}/pdf<enter>5<enter><pipe-entry>cat > {folder}/csv<enter><exit><exit>")
        run_in_terminal(["mutt", "-n", "-R", "-F", "/dev/null", "-f", folder + "/box", "-e", settings, "-e", f'push "{keys}"'],
                        folder)
        shown = content(folder + "/text").decode()
        for line in ("From: J\u00fcrgen M\u00fcller <pump3@plant.example>",
                     'To: "Doe, John" <john@plant.example>, M\u00fchle <muehle@m\u00fchle.example>',
                     "Cc: desk@plant.example", "Date: Mon, 21 Sep 2026 15:13:20 +0100"):
            assert line in shown.split("\n"), shown
        assert "Subject: " + EVERYTHING["subject"] in re.sub("\n ", " ", shown), shown
        assert EVERYTHING["text"] + "\n" in shown, shown
        assert content(folder + "/pdf") == PDF, len(content(folder + "/pdf"))
        assert content(folder + "/csv") == LOCAL_CSV, content(folder + "/csv")


def munpack_unpacks_it(octets):
    """It does not know RFC 2231, so it sees the name in ASCII."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["munpack", "-q", "-f"], cwd=folder, input=octets, capture_output=True, check=True)
        assert content(folder + "/_bersicht_3.pdf") == PDF, os.listdir(folder)
        assert content(folder + "/levels.csv") == LOCAL_CSV, content(folder + "/levels.csv")


def points(octets):
    """The score, and the rules with their points, that SpamAssassin's local rules give to a mail that another
    provider has delivered."""
    received = ("Received: from mail.provider.example (mail.provider.example [81.2.69.160])\r\n"
                "\tby mx.reader.example with ESMTPS id 1A2B3C; " + email.utils.formatdate() + "\r\n")
    report = subprocess.run(["spamassassin", "-L", "-t"], input=received.encode() + octets, capture_output=True, check=True)
    text = report.stdout.decode(errors="replace")
    score = float(re.search(r"Content analysis details: +\((-?[\d.]+) points", text)[1])
    return score, {name: float(value) for value, name in re.findall(r"^ *(-?\d+\.\d) ([A-Z]\w+) ", text, re.M)}


def alarm(subject, text):
    return {"from": "Pump station 3 <pump3@plant.example>", "to": "operator@plant.example", "subject": subject, "text": text,
            "message_id": "<0123456789abcdef0123456789abcdef@plant.example>", "date": int(time.time())}


def by_smtplib(subject, text):
    """What programs in Python usually send."""
    mail = email.mime.text.MIMEText(text)
    mail["From"], mail["To"], mail["Subject"] = "Pump station 3 <pump3@plant.example>", "operator@plant.example", subject
    return mail.as_bytes().replace(b"\n", b"\r\n")


def by_send_email(subject, text):
    with mail_servers.Sink(project) as server:
        words = {"Server": "127.0.0.1", "Port": server.port, "Login": mail_servers.USER, "Password": mail_servers.PASSWORD,
                 "SenderName": "Pump station 3", "SenderMail": "pump3@plant.example",
                 "Recipient": "operator@plant.example", "Subject": subject, "Message": text}
        subprocess.run([corvane, "run", "--cycle", "10ms", project + "/tests/end_to_end/send_email.lua", "--",
                        *(f"{name}={value}" for name, value in words.items())], capture_output=True, check=True, timeout=100)
        [mail] = server.take()
        return mail.bytes


def spamassassin_finds_no_fault(compose):
    plain = "Alarm: level too high", "Level 2.4 m, limit 2.3 m. Please check pump 3."
    umlauts = "F\u00fcllstand zu hoch", "Pegel 2,4 m \u2265 2,3 m, bitte Pumpe pr\u00fcfen."
    for name, words in ("plain", plain), ("umlauts", umlauts):
        ours, smtplib, send_email = points(compose(**alarm(*words))), points(by_smtplib(*words)), points(by_send_email(*words))
        print(f"SpamAssassin, {name}: ours {ours}, smtplib {smtplib}, SEND_EMAIL {send_email}")
        assert ours == (0.0, {}), ours
        # So the judge does judge.
        assert smtplib[0] > 0 and send_email[0] > 0, (smtplib, send_email)
    rich = {"html": "<p>Level 2.4 m, limit 2.3 m. Please check pump 3.</p>",
            "attachments": [{"name": "levels.csv", "octets": list(CSV)}]}
    score, rules = points(compose(**alarm(*plain), **rich))
    assert score == 0.0 and set(rules) <= {"HTML_MESSAGE"}, (score, rules)


with mail_composer.Composer(compose_mail) as composer:
    everything = composer(**EVERYTHING)
    mutt_reads_it(everything)
    munpack_unpacks_it(everything)
    spamassassin_finds_no_fault(composer)
