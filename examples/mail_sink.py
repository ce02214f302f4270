#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A mail server for trying out MAIL_OUTBOX and SEND_EMAIL: prints each message and keeps it as a file.

It listens on this machine only, requires AUTH LOGIN, and delivers nothing to anybody. The first line
that it prints is "READY" and its port. Ctrl-C or SIGTERM ends it.
"""
import argparse
import asyncio
import contextlib
import email
import email.policy
import hmac
import json
import logging
import os
import signal
import socket
import ssl
import warnings

from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword

# SEND_EMAIL sends a message body as one line, however long.
SMTP.line_length_limit = 1 << 30
MAX_MESSAGE = 64 << 20  # bytes

# AUTH without TLS is intended: the server listens on this machine only.
warnings.filterwarnings("ignore", module="aiosmtpd")
logging.getLogger("mail.log").setLevel(logging.ERROR)


class MailSink:
    """Prints each message, and keeps it as FOLDER/0001.eml with its envelope in 0001.json.
    Recipients that begin with "reject" are refused."""

    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_RCPT(self, _server, _session, envelope, address, _options):
        if address.startswith("reject"):
            return "550 5.1.1 no such user"
        envelope.rcpt_tos.append(address)
        return "250 2.1.5 OK"

    async def handle_DATA(self, _server, session, envelope):
        self.count += 1
        path = os.path.join(self.folder, f"{self.count:04}")
        with open(path + ".json", "w", encoding="utf-8") as file:
            json.dump({"helo": session.host_name, "from": envelope.mail_from,
                       "to": envelope.rcpt_tos}, file)
        with open(path + ".tmp", "wb") as file:
            file.write(envelope.original_content)
        os.rename(path + ".tmp", path + ".eml")  # it appears whole or not at all
        show(f"{self.count:04}.eml", envelope)
        return f"250 2.0.0 queued as {self.count:04}"


def show(name, envelope):
    """Prints the message as its receiver would see it."""
    message = email.message_from_bytes(envelope.original_content, policy=email.policy.default)
    print(f"---- {name}: {envelope.mail_from} -> {', '.join(envelope.rcpt_tos)}")
    for field in "From", "To", "Date", "Subject":
        print(f"{field}: {message[field]}")
    for part in message.walk():
        if part.get_filename():
            print(f"[{part.get_filename()}: {len(part.get_payload(decode=True))} bytes]")
        elif not part.is_multipart():
            print(part.get_payload(decode=True).decode("utf-8", "replace").rstrip())
    print("----", flush=True)


def authenticator(user, password):
    def check(_server, _session, _envelope, _mechanism, data):
        known = (isinstance(data, LoginPassword)
                 and hmac.compare_digest(data.login, user.encode())
                 and hmac.compare_digest(data.password, password.encode()))
        return AuthResult(success=known, handled=False)
    return check


async def be_away(door, seconds, stopped):
    """The port is known, but every connection is refused."""
    print("READY", door.getsockname()[1], flush=True)
    print(f"the mail server is away for {seconds:g} s", flush=True)
    with contextlib.suppress(asyncio.TimeoutError):
        await asyncio.wait_for(stopped.wait(), seconds)


async def serve(options):
    os.makedirs(options.folder, exist_ok=True)
    sink = MailSink(options.folder)
    check = authenticator(options.user, options.password)
    tls = None
    if options.certificate:
        tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        tls.load_cert_chain(options.certificate)
    door = socket.socket()
    door.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    door.bind(("127.0.0.1", options.port))  # from now on the port is ours, but nobody can connect yet
    loop = asyncio.get_running_loop()
    stopped = asyncio.Event()
    for number in signal.SIGINT, signal.SIGTERM:
        loop.add_signal_handler(number, stopped.set)
    if options.away:
        await be_away(door, options.away, stopped)
    server = await loop.create_server(
        lambda: SMTP(sink, hostname="mail-sink.example", authenticator=check, auth_required=True,
                     auth_require_tls=bool(tls), tls_context=tls, require_starttls=bool(tls),
                     data_size_limit=MAX_MESSAGE), sock=door)
    print("the mail server is back" if options.away else f"READY {door.getsockname()[1]}", flush=True)
    await stopped.wait()
    server.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", help="where the messages are kept")
    parser.add_argument("--port", type=int, default=0, help="TCP port; 0: a free one (default)")
    parser.add_argument("--user", default="plc", help="for AUTH LOGIN (default: plc)")
    parser.add_argument("--password", default="s3cret", help="(default: s3cret)")
    parser.add_argument("--away", type=float, default=0, help="refuses connections for so many seconds at first")
    parser.add_argument("--certificate", help="file with certificate and key: insist on STARTTLS")
    asyncio.run(serve(parser.parse_args()))


if __name__ == "__main__":
    main()
