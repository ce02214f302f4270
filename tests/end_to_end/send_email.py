#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""send_email.py PROJECT CORVANE: SEND_EMAIL with two real mail servers, aiosmtpd and exim4, and two
programs that parse what arrives, Python's email package and munpack."""
import concurrent.futures
import os
import random
import re
import subprocess
import sys
import tempfile

import mail_servers

project, corvane = sys.argv[1:]
inputs = {"Server": "127.0.0.1", "Login": mail_servers.USER, "Password": mail_servers.PASSWORD,
          "SenderName": "Pump 3", "SenderMail": "pump3@plant.example", "Subject": "Alarm",
          "Recipient": "operator@plant.example", "Message": "Level too high",
          "ReplyToMail": "desk@plant.example"}


def send(server, folder=None, **changes):
    """The code with which sending ends, and the log."""
    values = {**inputs, "Port": server.port, **changes}
    words = [f"{name}={value}" for name, value in values.items()]
    command = [corvane, "run", "--cycle", "10ms", project + "/tests/end_to_end/send_email.lua", "--", *words]
    result = subprocess.run(command, capture_output=True, text=True, timeout=100, cwd=folder)
    assert result.returncode == 0 and result.stdout.startswith("code "), result
    assert inputs["Password"] not in result.stderr, result
    return int(result.stdout.removeprefix("code ")), result.stderr


def take_after_sending(server, folder=None, **changes):
    code, log = send(server, folder, **changes)
    # Sending holds up the cycle, so it may overrun, and on a busy machine last longer than a second.
    slow = re.compile(r" warning (overrun: |cycle \d+ has been running for )")
    warnings = [line for line in log.splitlines() if " warning " in line and not slow.search(line)]
    assert code == 0 and warnings == [], (code, log)
    [mail] = server.take()
    return mail


def unpack(mail):
    """What munpack finds in the message: the bytes of each file by its name."""
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/mail", "wb") as file:
            file.write(mail.bytes)
        subprocess.run(["munpack", "-q", "-f", "mail"], cwd=folder, capture_output=True, check=True)
        os.remove(folder + "/mail")
        contents = {}
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), "rb") as file:
                contents[name] = file.read()
        return contents


def addresses(field):
    return [address.addr_spec for address in field.addresses]


def attachments_arrive_byte_by_byte(server):
    for size in 1, 54, 5120, 300001, 5 << 20:
        content = random.Random(size).randbytes(size)
        with tempfile.TemporaryDirectory() as folder:
            with open(folder + "/report.bin", "wb") as file:
                file.write(content)
            mail = take_after_sending(server, folder, Attachment="report.bin", Message=f"{size} bytes")
        assert mail.attachments() == {"report.bin": content}, size
        assert unpack(mail)["report.bin"] == content, size
        assert not mail.defects, mail.defects
        assert mail.text() == f"{size} bytes", mail.text()


def header_and_text_arrive(server):
    text = "Pegel zu hoch: 2,4 m \u2265 2,3 m\r\nBitte pr\u00fcfen."
    mail = take_after_sending(server, Message=text)
    message = mail.message
    assert message["From"] == "Pump 3 <pump3@plant.example>", message["From"]
    assert addresses(message["To"]) == ["operator@plant.example"], message["To"]
    assert message["Subject"] == "Alarm", message["Subject"]
    assert message["Reply-To"] == "desk@plant.example", message["Reply-To"]
    assert message["X-Mailer"] == "Corvane", message["X-Mailer"]
    assert message["X-Priority"] == "3 (Normal)", message["X-Priority"]
    assert message["Date"].datetime is not None, message["Date"]
    assert message.get_content_charset() == "utf-8", message["Content-Type"]
    assert mail.text() == text.replace("\r", "") + "\n\n", mail.text()
    assert not mail.defects, mail.defects


def a_long_line_arrives(server):
    text = "0123456789" * 10000
    assert take_after_sending(server, Message=text, Subject="x" * 500).text() == text + "\n\n"


def every_recipient_gets_it(server):
    code, _ = send(server, Recipient="a@plant.example b@plant.example;c@plant.example")
    assert code == 0, code
    expected = ["a@plant.example", "b@plant.example", "c@plant.example"]
    if isinstance(server, mail_servers.Sink):
        [mail] = server.take()
        assert server.last_envelope()["to"] == expected, server.last_envelope()
        assert server.last_envelope()["from"] == "pump3@plant.example", server.last_envelope()
    else:  # one message each
        mails = server.take(3)
        assert sorted(mail.message["Envelope-To"] for mail in mails) == expected, mails
        mail = mails[0]
    assert addresses(mail.message["To"]) == expected, mail.message["To"]


def a_wrong_password_is_406(server):
    code, log = send(server, Password="wrong")
    assert code == 406 and "Bad login or password" in log, (code, log)
    assert not server.files()


def a_refused_recipient_costs_a_time_out(server):
    code, log = send(server, Recipient="reject@plant.example")
    assert code == 402 and "Server not responding" in log, (code, log)
    assert re.search(r'SEND_EMAIL of .*/send_email.lua:\d+, "Alarm" via 127.0.0.1 port \d+: code 402 after RCPT '
                     r"TO:<reject@plant.example>; .*; the server's last line: 550 .*no such user", log), log
    code, _ = send(server, Recipient="operator@plant.example reject@plant.example")
    assert code == 402, code
    assert not server.files()


def run(make_server, *scenarios):
    with make_server() as server:
        for scenario in scenarios:
            scenario(server)


def sink():
    return mail_servers.Sink(project)


def exim():
    return mail_servers.Exim(mail_servers.MAILDIR_SERVER)


fast = (header_and_text_arrive, a_long_line_arrives, every_recipient_gets_it, a_wrong_password_is_406,
        attachments_arrive_byte_by_byte)
with concurrent.futures.ThreadPoolExecutor() as side_by_side:
    runs = [side_by_side.submit(run, server, *scenarios) for server in (sink, exim)
            for scenarios in (fast, [a_refused_recipient_costs_a_time_out])]
    for outcome in runs:
        outcome.result()
print("e-mails arrive whole through aiosmtpd and exim4")
