# SPDX-License-Identifier: MIT
"""A mail server that does what a test wants: it refuses, waits, or says nothing at the moment that the test chooses."""
import base64
import socketserver
import threading


class SmtpPeer:
    """Listens on loopback. `mails` has what was taken: (sender, recipients, octets)."""

    def __init__(self, port=0, login=None, silent=False):
        self.login = login  # (user, password); None: no login is offered
        self.silent = silent  # a black hole: it takes connections and says nothing
        self.replies = {}  # by the beginning of a line of the client, in place of 250
        self.final = "250 queued"
        self.mails, self.lines, self.connections, self.logins = [], [], 0, []
        self.waiting = threading.Event()  # the final dot has come while `hold` is set
        self.hold = None  # an event that the reply to the final dot waits for
        peer = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                try:
                    peer.serve(self)
                except OSError:
                    pass

        class Server(socketserver.ThreadingTCPServer):
            allow_reuse_address, daemon_threads = True, True

        self.server = Server(("127.0.0.1", port), Handler)
        self.port = self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()

    def serve(self, client):
        self.connections += 1
        if self.silent:
            client.rfile.read()
            return

        def say(text):
            client.wfile.write(text.encode() + b"\r\n")
        say("220 test ESMTP")
        sender, recipients = "", []
        for octets in client.rfile:
            line = octets.decode(errors="replace").rstrip("\r\n")
            self.lines.append(line)
            verb = line.split(" ")[0].upper()
            refusal = next((reply for start, reply in self.replies.items() if line.startswith(start)), None)
            if verb == "EHLO":
                say("250-test\r\n250-8BITMIME\r\n250-SMTPUTF8\r\n" + ("250-AUTH PLAIN\r\n" if self.login else "") + "250 SIZE")
            elif verb == "AUTH":
                self.check(line, say, client)
            elif refusal:
                say(refusal)
            elif verb == "MAIL":
                sender, recipients = line, []
                say("250 ok")
            elif verb == "RCPT":
                recipients.append(line[len("RCPT TO:<"):].split(">")[0])
                say("250 ok")
            elif verb == "DATA":
                say("354 go on")
                self.take(client, sender, recipients, say)
            elif verb == "QUIT":
                say("221 bye")
                return
            else:
                say("250 ok")

    def check(self, line, say, client):
        words = line.split(" ")
        if len(words) < 3:
            say("334 ")
            words.append(client.rfile.readline().decode().strip())
        _, user, password = base64.b64decode(words[2]).decode().split("\0")
        self.logins.append((user, password))
        say("235 welcome" if (user, password) == self.login else "535 5.7.8 no such user or password")

    def take(self, client, sender, recipients, say):
        octets = b""
        while not octets.endswith(b"\r\n.\r\n"):
            more = client.rfile.readline()
            if not more:
                return
            octets += more
        if self.hold:
            self.waiting.set()
            self.hold.wait(60)
        if not self.final:
            client.connection.shutdown(2)
            return
        if self.final.startswith("2"):
            self.mails.append((sender, recipients, octets[:-3].replace(b"\r\n..", b"\r\n.")))
        say(self.final)
