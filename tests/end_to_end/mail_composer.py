# SPDX-License-Identifier: MIT
"""Composes mails with the test program compose_mail, one process for all."""
import json
import subprocess


class Composer:
    """Call it with the fields of a message; its `with` block ends the process."""

    def __init__(self, program):
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        self.process.stdin.close()
        status = self.process.wait(30)
        assert failure or status == 0, status

    def __call__(self, **message):
        """The octets of a mail, checked for what holds for each."""
        fields = {"from": "pump3@plant.example", "to": "desk@plant.example",
                  "message_id": "<0123456789@plant.example>", **message}
        self.process.stdin.write(json.dumps(fields).encode() + b"\n")
        self.process.stdin.flush()
        announced = int(self.process.stdout.readline())
        size = int(self.process.stdout.readline())
        assert announced == size, (announced, size)
        octets = self.process.stdout.read(size)
        check_lines(octets)
        return octets


def check_lines(octets):
    assert octets.endswith(b"\r\n"), octets[-20:]
    for line in octets[:-2].split(b"\r\n"):
        assert b"\r" not in line and b"\n" not in line and b"\0" not in line, line
        assert len(line) <= 998, line
        # Servers double the dot, mailboxes alter "From ".
        assert not line.startswith((b".", b"From ")), line


def quoted(name, mailbox):
    """An address as a control program gives it."""
    escaped = name.replace("\\", "\\\\").replace('"', '\\"')
    return f'"{escaped}" <{mailbox}>' if name else mailbox
