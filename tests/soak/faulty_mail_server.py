# SPDX-License-Identifier: MIT
"""A mail server (RFC 5321, AUTH LOGIN) whose next conversation goes wrong on request."""
import base64
import dataclasses
import email
import email.policy
import socket
import threading
import time

PATIENCE = 30  # seconds; longer than the client's
STAGES = ("greeting", "EHLO", "AUTH", "login", "password", "MAIL", "RCPT", "DATA", "text", "QUIT")
BROKEN = (102, 103, 408)  # how the end of a connection looks to the client, depending on where it is


@dataclasses.dataclass(frozen=True)
class Fault:
    kind: str  # close, hang, refuse, slow
    stage: str = ""  # the stage that is not answered as it should be
    codes: tuple = (0,)  # the codes that the client may end with

    def __str__(self):
        return f"{self.kind} {self.stage}".strip()


NONE = Fault("none")
REFUSALS = {"greeting": (554, 401), "EHLO": (502, 301), "AUTH": (502, 302), "password": (535, 406),
            "MAIL": (550, 300), "DATA": (554, 303), "text": (554, 306), "QUIT": (500, 304)}
QUICK_FAULTS = ([Fault("close", stage, BROKEN) for stage in STAGES]
                + [Fault("close", "middle", BROKEN)]
                + [Fault("refuse", stage, (codes[1],)) for stage, codes in REFUSALS.items()]
                + [Fault("slow")])
# Each of these holds the client's cycle for ten seconds.
SLOW_FAULTS = ([Fault("hang", stage, (402,)) for stage in STAGES + ("middle",)]
               + [Fault("refuse", "RCPT", (402,))])
REPLIES = {"greeting": "220 soak", "EHLO": "250-soak\r\n250 AUTH LOGIN", "AUTH": "334 VXNlcm5hbWU6",
           "login": "334 UGFzc3dvcmQ6", "password": "235 welcome", "MAIL": "250 OK",
           "RCPT": "250 OK", "DATA": "354 go on", "text": "250 taken", "QUIT": "221 bye"}


@dataclasses.dataclass
class Record:
    """One conversation."""
    fault: Fault
    number: int = 0  # the message's, from the login; 0: the conversation did not get that far
    taken: bool = False  # text and attachment arrived complete, and the server keeps the message
    problem: str = ""  # what is wrong with it


class Gone(Exception):
    """The conversation is over."""


class Conversation:
    def __init__(self, connection, record, attachment, stopping):
        self.connection, self.record = connection, record
        self.attachment, self.stopping = attachment, stopping
        self.data = b""

    def run(self):
        for stage in STAGES:
            if stage != "greeting":
                self.look_at(stage, self.read_text() if stage == "text" else self.read(b"\r\n"))
            self.answer(stage)

    def look_at(self, stage, line):
        if stage == "login":
            self.record.number = int(base64.b64decode(line).decode().removeprefix("plc-"))
        elif stage == "text":
            self.record.problem = self.problem_of(line)
            fault = self.record.fault
            self.record.taken = (fault.kind, fault.stage) != ("refuse", "text")

    def answer(self, stage):
        fault = self.record.fault
        reply = REPLIES[stage] + "\r\n"
        if fault.stage == stage:
            if fault.kind != "refuse":
                self.go_wrong()
            reply = f"{REFUSALS.get(stage, (550,))[0]} no\r\n"
        if fault.kind == "slow":
            for octet in reply.encode():
                self.connection.sendall(bytes([octet]))
                time.sleep(0.005)
        else:
            self.connection.sendall(reply.encode())

    def go_wrong(self):
        if self.record.fault.kind == "hang":
            self.stopping.wait(PATIENCE)
        raise Gone

    def read(self, end):
        while end not in self.data:
            piece = self.connection.recv(65536)
            if not piece:
                raise Gone
            self.data += piece
        line, self.data = self.data.split(end, 1)
        return line

    def read_text(self):
        if self.record.fault.kind == "slow":
            while b"\r\n.\r\n" not in self.data and (piece := self.connection.recv(2048)):
                self.data += piece
                time.sleep(0.005)
        if self.record.fault.stage == "middle":
            self.read(b"\r\n\r\n")  # the header
            self.go_wrong()
        return self.read(b"\r\n.\r\n")

    def problem_of(self, text):
        message = email.message_from_bytes(text, policy=email.policy.default)
        number = self.record.number
        if message["Subject"] != f"soak {number}" or f"Message {number} of".encode() not in text:
            return f"another text: {text[:400]}"
        files = [part.get_payload(decode=True) for part in message.walk() if part.get_filename()]
        if files != ([self.attachment] if number % 10 == 0 else []):
            return f"another attachment: {[len(file) for file in files]} bytes"
        return ""


class FaultyMailServer:
    def __init__(self, attachment):
        self.attachment = attachment
        self.records = []
        self.next_fault = None
        self.stopping = threading.Event()
        self.port = 0
        self.listen()

    def listen(self):
        self.listener = socket.create_server(("127.0.0.1", self.port))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, args=(self.listener,), daemon=True).start()

    def accept(self, listener):
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:  # closed
                return
            record = Record(self.next_fault or NONE)
            self.next_fault = None
            self.records.append(record)
            threading.Thread(target=self.talk, args=(connection, record), daemon=True).start()

    def talk(self, connection, record):
        connection.settimeout(PATIENCE)
        with connection:
            try:
                Conversation(connection, record, self.attachment, self.stopping).run()
            except (Gone, OSError):
                pass

    def go_away(self):
        self.listener.shutdown(socket.SHUT_RDWR)  # wakes accept()
        self.listener.close()

    def end(self):
        self.stopping.set()
        self.go_away()
