# SPDX-License-Identifier: MIT
"""A client of the bench: HTTP and WebSocket (RFC 6455) over TCP or a Unix socket, and a program that it looks at."""
import base64
import json
import os
import re
import select
import signal
import socket
import subprocess
import tempfile
import time

from patience import TIME_FACTOR

PATIENCE = 20.0 * TIME_FACTOR


def wait_for(condition, what, seconds=PATIENCE):
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < end, f"waited in vain for {what}"
        time.sleep(0.02)


class Program:
    """`corvane run` with a page on a port that the system chooses, and with a Unix socket."""

    def __init__(self, corvane, text, *options, web=("--web", "0"), cycle="10ms", sockets=None, name="program"):
        self.folder = tempfile.TemporaryDirectory()
        self.path = f"{self.folder.name}/{name}.lua"
        with open(self.path, "w", encoding="utf-8") as file:
            file.write(text)
        self.sockets = sockets or self.folder.name + "/run"
        self.socket = f"{self.sockets}/{name}.sock"
        self.log_path = self.folder.name + "/log"
        variables = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": self.folder.name,
                     "RUNTIME_DIRECTORY": self.sockets}
        with open(self.log_path, "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", corvane, "run", self.path, "--cycle", cycle, *web, *options],
                stdout=log, stderr=log, stdin=subprocess.DEVNULL, env=variables)
        self.port = None
        if web:
            match = wait_for(lambda: re.search(r"bench: http://(\S+):(\d+)/", self.log()) or self.ended(),
                             "the page's address")
            assert match is not True, self.log()
            self.port = int(match[2])
        wait_for(lambda: os.path.exists(self.socket) or self.ended(), "the Unix socket")
        assert not self.ended(), self.log()

    def ended(self):
        return self.process.poll() is not None

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def end(self):
        """Ends it as Ctrl-C does; it must not take long."""
        self.process.send_signal(signal.SIGINT)
        self.process.wait(PATIENCE)
        log = self.log()
        self.folder.cleanup()
        assert "Sanitizer" not in log and "runtime error" not in log, log
        return self.process.returncode

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if not self.ended():
            self.end()


def connect(where):
    """`where`: a TCP port of this machine, or the path of a Unix socket."""
    if isinstance(where, int):
        return socket.create_connection(("127.0.0.1", where), PATIENCE)
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(PATIENCE)
    connection.connect(where)
    return connection


class Response:
    def __init__(self, head, body):
        lines = head.decode("latin-1").split("\r\n")
        self.status = int(lines[0].split()[1])
        self.headers = {name.lower(): value for name, value in (line.split(": ", 1) for line in lines[1:])}
        self.body = body


def request(where, target, method="GET", **headers):
    """One HTTP request on a connection of its own."""
    fields = {"Host": f"127.0.0.1:{where}" if isinstance(where, int) else "localhost", "Connection": "close"}
    fields.update({name.replace("_", "-"): value for name, value in headers.items()})
    lines = [f"{method} {target} HTTP/1.1"]
    lines += [f"{name}: {value}" for name, value in fields.items() if value is not None]
    return raw_request(where, ("\r\n".join(lines) + "\r\n\r\n").encode("latin-1"))


def raw_request(where, octets):
    with connect(where) as connection:
        connection.sendall(octets)
        answer = b""
        while data := connection.recv(65536):
            answer += data
    if not answer:
        return None
    head, _, body = answer.partition(b"\r\n\r\n")
    return Response(head, body)


class Closed(Exception):
    """The server has closed the connection."""


class WebSocket:
    def __init__(self, where, path="/ws", **headers):
        self.connection = connect(where)
        self.received = b""
        self.kept = []
        fields = {"Host": f"127.0.0.1:{where}" if isinstance(where, int) else "localhost",
                  "Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
                  "Sec-WebSocket-Key": base64.b64encode(os.urandom(16)).decode()}
        fields.update({name.replace("_", "-"): value for name, value in headers.items()})
        lines = [f"GET {path} HTTP/1.1"] + [f"{n}: {v}" for n, v in fields.items() if v is not None]
        self.connection.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
        while b"\r\n\r\n" not in self.received:
            self.receive_more()
        head, _, self.received = self.received.partition(b"\r\n\r\n")
        self.status = int(head.split()[1])

    def receive_more(self):
        data = self.connection.recv(65536)
        if not data:
            raise Closed
        self.received += data

    def octets(self, count):
        while len(self.received) < count:
            self.receive_more()
        taken, self.received = self.received[:count], self.received[count:]
        return taken

    def send_frame(self, opcode, payload, final=True):
        mask = os.urandom(4)
        size = len(payload)
        head = bytes([(0x80 if final else 0) | opcode])
        if size < 126:
            head += bytes([0x80 | size])
        elif size < 65536:
            head += bytes([0x80 | 126]) + size.to_bytes(2, "big")
        else:
            head += bytes([0x80 | 127]) + size.to_bytes(8, "big")
        self.connection.sendall(head + mask + bytes(octet ^ mask[i % 4] for i, octet in enumerate(payload)))

    def send(self, **message):
        self.send_frame(1, json.dumps(message).encode())

    def receive_frame(self):
        first, second = self.octets(2)
        size = second & 0x7F
        if size == 126:
            size = int.from_bytes(self.octets(2), "big")
        elif size == 127:
            size = int.from_bytes(self.octets(8), "big")
        return first & 0x0F, self.octets(size)

    def receive(self):
        """The next message; pings are answered."""
        while True:
            opcode, payload = self.receive_frame()
            if opcode == 1:
                return json.loads(payload)
            if opcode == 8:
                raise Closed
            if opcode == 9:
                self.send_frame(10, payload)

    def expect(self, kind, condition=lambda message: True):
        """The next message of this type for which the condition holds; others are dropped."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            message = self.receive()
            if message["type"] == kind and condition(message):
                return message
        raise AssertionError(f"no such message of the type {kind}")

    def ask(self, number, **message):
        """Sends a request, and returns its result."""
        self.send(request=number, **message)
        return self.expect("result", lambda result: result["request"] == number)

    def is_silent(self, seconds):
        return not self.received and not select.select([self.connection], [], [], seconds)[0]

    def close(self):
        self.connection.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
