# SPDX-License-Identifier: MIT
"""The peers of a long run that keep books of what they got: a mail server (RFC 5321) and a Modbus server, each of
which fails at random."""
import base64
import collections
import dataclasses
import random
import re
import socket
import ssl
import struct
import subprocess
import threading
import time

PATIENCE = 30  # seconds; longer than the client's
STAGES = ("greeting", "EHLO", "MAIL", "RCPT", "DATA", "middle", "text", "QUIT")
NONE = ("none", "")
FAULTS = ([("close", stage) for stage in STAGES] + [("hang", stage) for stage in STAGES]
          + [("busy", stage) for stage in ("greeting", "EHLO", "MAIL", "RCPT", "DATA", "text")]
          + [("never", stage) for stage in ("MAIL", "RCPT", "DATA", "text")]
          + [("slow", "")] * 4 + [("close", "text")] * 4)
HEALTHY = 0.75  # the part of the mails that go well
LOGIN = ("plc", "s3cret")


@dataclasses.dataclass
class Attempt:
    """What became of one mail in one conversation."""
    mail: str  # such as "plain-17"
    recipients: list
    fault: tuple
    start: float
    end: float = float("inf")  # when its last reply was sent
    dotted: bool = False  # the final dot has come
    taken: bool = False  # the server keeps the mail
    refused: set = dataclasses.field(default_factory=set)  # recipients that never get it
    problem: str = ""


class Gone(Exception):
    """The conversation is over."""


class Listener:
    """Accepts connections, each in its thread, and may be away for a while."""

    def __init__(self):
        self.stopping = threading.Event()
        self.port = 0
        self.connections = set()
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
            threading.Thread(target=self.talk, args=(connection,), daemon=True).start()

    def talk(self, connection):
        self.connections.add(connection)
        connection.settimeout(PATIENCE)
        with connection:
            try:
                self.serve(connection)
            except (Gone, OSError):
                pass
        self.connections.discard(connection)

    def go_away(self, drop=False):
        """drop: the connections, too."""
        self.listener.shutdown(socket.SHUT_RDWR)  # wakes accept()
        self.listener.close()
        for connection in list(self.connections) if drop else ():
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # it has just ended

    def end(self):
        self.stopping.set()
        self.go_away()


class MailServer(Listener):
    """`attempts` has all that it was asked to take; `context`: it speaks TLS from the start."""

    def __init__(self, seed, attachment, context=None):
        self.random, self.attachment, self.context = random.Random(seed), attachment, context
        self.attempts, self.healthy = [], False
        self.faults = collections.Counter()
        super().__init__()

    def serve(self, connection):
        if self.context:
            with self.context.wrap_socket(connection, server_side=True) as wrapped:
                Conversation(self, wrapped).run()
        else:
            Conversation(self, connection).run()

    def next_fault(self):
        fault = self.random.choice(FAULTS) if not self.healthy and self.random.random() > HEALTHY else NONE
        self.faults[fault] += 1
        return fault


class Conversation:
    def __init__(self, server, connection):
        self.server, self.connection, self.fault = server, connection, server.next_fault()
        self.data, self.attempt = b"", None

    def run(self):
        self.reply("greeting", "220 soak")
        while True:
            line = self.read(b"\r\n").decode()
            verb = line.split(" ")[0].upper()
            if verb == "EHLO":
                self.reply("EHLO", "250-soak\r\n250-8BITMIME\r\n250-AUTH PLAIN\r\n250 SIZE 30000000")
            elif verb == "AUTH":
                self.check(line)
            elif verb == "MAIL":
                mail = re.search("<from-(.*)@", line)[1]
                if self.attempt:  # the second mail of this conversation
                    self.fault = self.server.next_fault()
                self.attempt = Attempt(mail, [], self.fault, time.monotonic())
                self.server.attempts.append(self.attempt)
                self.reply("MAIL", "250 OK")
            elif verb == "RCPT":
                self.recipient(re.search("<(.*)@", line)[1])
            elif verb == "DATA":
                if self.reply("DATA", "354 go on"):
                    self.take()
            elif verb == "QUIT":
                self.reply("QUIT", "221 bye")
                return
            else:
                self.say("250 OK")

    def recipient(self, name):
        if name == "op-" + self.attempt.mail and int(name.split("-")[2]) % 2 == 0 and self.fault[0] in ("busy", "never"):
            self.say("250 OK")  # only the other one is refused
        elif not self.reply("RCPT", "250 OK"):
            self.attempt.refused |= {name} if self.fault[0] == "never" else set()
            return
        self.attempt.recipients.append(name)

    def check(self, line):
        words = line.split(" ")
        if len(words) < 3:
            self.say("334 ")
            words.append(self.read(b"\r\n").decode())
        right = tuple(base64.b64decode(words[2]).decode().split("\0")[1:]) == LOGIN
        self.say("235 welcome" if right else "535 no")

    def take(self):
        if self.fault[1] == "middle":
            self.read(b"\r\n\r\n")
            self.go_wrong()
        text = self.read(b"\r\n.\r\n", slowly=self.fault[0] == "slow")
        self.attempt.dotted = True
        self.attempt.taken = self.fault not in (("busy", "text"), ("never", "text"))
        self.attempt.problem = self.problem_of(text)
        self.reply("text", "250 taken")
        self.attempt.end = time.monotonic()

    def problem_of(self, text):
        mail, number = self.attempt.mail, int(self.attempt.mail.split("-")[1])
        if f"Subject: order {mail}\r\n".encode() not in text or f"Mail {mail} of a long run.".encode() not in text:
            return f"another text: {text[:400]}"
        encoded = b"".join(base64.b64encode(self.server.attachment).split())
        if (encoded in text.replace(b"\r\n", b"")) != (number % 10 == 0):
            return "another attachment"
        return ""

    def reply(self, stage, text):
        """Whether it is the reply that the client wants."""
        wanted = True
        if self.fault[1] == stage:
            if self.fault[0] in ("close", "hang"):
                self.go_wrong()
            wanted, text = False, "451 later" if self.fault[0] == "busy" else "550 never"
            if self.fault[0] == "never" and stage in ("DATA", "text"):
                self.attempt.refused |= set(self.attempt.recipients)
            elif self.fault[0] == "never" and stage == "MAIL":
                self.attempt.refused |= {kind + self.attempt.mail for kind in ("op-", "chief-")}
        self.say(text)
        return wanted

    def say(self, text):
        octets = text.encode() + b"\r\n"
        if self.fault[0] != "slow":
            self.connection.sendall(octets)
            return
        for octet in octets:
            self.connection.sendall(bytes([octet]))
            time.sleep(0.01)

    def go_wrong(self):
        if self.fault[0] == "hang":
            self.server.stopping.wait(PATIENCE)
        raise Gone

    def read(self, end, slowly=False):
        while end not in self.data:
            piece = self.connection.recv(4096 if slowly else 65536)
            if not piece:
                raise Gone
            self.data += piece
            if slowly:
                time.sleep(0.01)
        line, self.data = self.data.split(end, 1)
        return line


def tls_context(folder):
    """Of a server whose certificate is in `folder`/ca.pem."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "30", "-subj", "/CN=soak", "-addext", "subjectAltName=IP:127.0.0.1",
                    "-keyout", folder + "/key.pem", "-out", folder + "/ca.pem"], check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder + "/ca.pem", folder + "/key.pem")
    return context


class ModbusServer(Listener):
    """Registers 0 and 1 are written (`written` has the numbers); 1000 and 1001 count the reads."""

    def __init__(self, seed):
        self.random, self.written, self.reads = random.Random(seed), [], 0
        super().__init__()

    def serve(self, connection):
        while True:
            header = self.receive(connection, 7)
            length = struct.unpack(">HHHB", header)[2]
            request = self.receive(connection, length - 1)
            answer = self.answer(request)
            if self.random.random() < 0.01:  # as a device does that loses its power
                self.stopping.wait(self.random.choice([0, 2]))
                return
            connection.sendall(header[:4] + struct.pack(">HB", len(answer) + 1, header[6]) + answer)

    def answer(self, request):
        if request[0] == 16:
            self.written.append(struct.unpack(">I", request[6:10])[0])
            return request[:5]
        self.reads += 1
        return struct.pack(">BBI", request[0], 4, self.reads)

    @staticmethod
    def receive(connection, count):
        octets = b""
        while len(octets) < count:
            piece = connection.recv(count - len(octets))
            if not piece:
                raise Gone
            octets += piece
        return octets
