#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_outbox_pages.py PROJECT CORVANE: what docs/blocks/mail_outbox.md and docs/mail.md show of MAIL_OUTBOX. Their
programs run with a provider that insists on TLS, and on its password or a token; the commands that fetch tokens run
with a server for them. Only names, ports and folders are replaced."""
import asyncio
import base64
import http.server
import json
import logging
import os
import re
import shlex
import shutil
import ssl
import subprocess
import sys
import tempfile
import threading
import urllib.parse
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

sys.dont_write_bytecode = True
import mail_servers
from page import commands, read_blocks

project, corvane = sys.argv[1:]
PROVIDER = ("--user", "plant@provider.example", "--password", "provider-password")
guide = read_blocks(project, "docs/mail.md")
warnings.filterwarnings("ignore", module="aiosmtpd")
logging.getLogger("mail.log").setLevel(logging.ERROR)


def programs_of(blocks):
    """Each program with MAIL_OUTBOX, with its output."""
    return [(block.text, blocks[number + 1].text) for number, block in enumerate(blocks)
            if block.language == "lua" and "MAIL_OUTBOX" in block.text]


def make_certificate(folder):
    """Files with a certificate for localhost, and with its key in addition."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=DNS:localhost", "-keyout", folder + "/key", "-out", folder + "/certificate"],
                   check=True, capture_output=True)
    with open(folder + "/both", "w", encoding="utf-8") as both:
        for name in "key", "certificate":
            with open(f"{folder}/{name}", encoding="utf-8") as part:
                both.write(part.read())


def replace(text, old, new):
    assert text.count(old) == 1, (old, text)
    return text.replace(old, new)


def run(program, port, folder):
    """What the program prints with the provider on this machine."""
    program = replace(program, 'Server = "mail.provider.example",',
                      f'Server = "localhost", Port = {port}, CaFile = "{folder}/certificate",')
    with open(folder + "/program.lua", "w", encoding="utf-8") as file:
        file.write(program)
    with tempfile.TemporaryDirectory() as state:
        result = subprocess.run([corvane, "run", "--cycle", "5ms", folder + "/program.lua"], capture_output=True,
                                text=True, timeout=60, check=False, env={**os.environ, "STATE_DIRECTORY": state})
        with open(state + "/messages.db", "rb") as store:
            assert b"provider-password" not in store.read()
    assert result.returncode == 0 and "provider-password" not in result.stderr, result
    return result.stdout


def programs_with_a_password_work(folder):
    token_program = programs_of(guide)[-1]
    pairs = programs_of(read_blocks(project, "docs/blocks/mail_outbox.md")) + programs_of(guide)[:-1]
    assert len(pairs) == 2 and "mail.Token" in token_program[0]
    for program, expected in pairs:
        with mail_servers.Sink(project, "--certificate", folder + "/both", *PROVIDER) as provider:
            assert run(program, provider.port, folder) == expected
            [mail] = provider.take()
            assert not mail.defects and mail.message["From"].addresses[0].addr_spec == "plant@provider.example", mail.bytes


class TokenServer(http.server.BaseHTTPRequestHandler):
    """Gives tokens as RFC 6749 and RFC 8628 say, for exactly the fields that it expects."""

    ANSWERS = {
        "/oauth2/devicecode": [({"client_id": "CLIENT", "scope": "SCOPE"}, {"device_code": "DEVICE"})],
        "/oauth2/token": [
            ({"client_id": "CLIENT", "device_code": "DEVICE", "grant_type": "urn:ietf:params:oauth:grant-type:device_code"},
             {"refresh_token": "REFRESH"}),
            ({"grant_type": "refresh_token", "client_id": "CLIENT", "client_secret": "SECRET", "refresh_token": "REFRESH"},
             {"access_token": "ACCESS", "token_type": "Bearer", "expires_in": 3600})]}

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"])).decode()
        fields = dict(urllib.parse.parse_qsl(body, strict_parsing=True))
        answer = next((answer for expected, answer in self.ANSWERS[self.path] if expected == fields), None)
        self.send_response(200 if answer else 400)
        self.end_headers()
        self.wfile.write(json.dumps(answer or {"error": f"unexpected {fields}"}, indent=1).encode())

    def log_message(self, *_):
        pass


class TokenProvider:
    """A mail server that accepts one access token and counts its mails."""

    def __init__(self, certificate):
        self.count = 0
        self.tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        self.tls.load_cert_chain(certificate)

    async def handle_DATA(self, _server, _session, _envelope):
        self.count += 1
        return "250 2.0.0 queued"

    async def auth_XOAUTH2(self, server, words):
        response = words[1] if len(words) > 1 else await server.challenge_auth("")
        response = base64.b64decode(response) if isinstance(response, str) else response
        return AuthResult(success=response == b"user=plant@provider.example\1auth=Bearer ACCESS\1\1", handled=False)

    def __enter__(self):
        self.loop = asyncio.new_event_loop()
        ready = threading.Event()

        async def serve():
            server = await self.loop.create_server(
                lambda: SMTP(self, hostname="provider.example", auth_required=True, tls_context=self.tls,
                             require_starttls=True, auth_exclude_mechanism=["LOGIN", "PLAIN"]), "127.0.0.1", 0)
            self.port = server.sockets[0].getsockname()[1]
            ready.set()
        self.loop.create_task(serve())
        self.thread = threading.Thread(target=self.loop.run_forever)
        self.thread.start()
        ready.wait()
        return self

    def __exit__(self, *_):
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()


def fetch_tokens(folder):
    """Does what the guide says, with our server for tokens and our folders."""
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), TokenServer)
    threading.Thread(target=server.serve_forever).start()

    def ours(command):
        command = command.replace("https://login.provider.example", f"http://127.0.0.1:{server.server_port}")
        command = command.replace("/etc/corvane/token", folder + "/token").replace("/run/mail-token", folder)
        return command.replace("sudo -u corvane ", "").replace("sudo ", "").replace("-o corvane ", "")

    typed = [command for block in guide if block.language == "console" and "login.provider" in block.text
             for command in commands(block.text)]
    assert len(typed) == 6, typed
    for command, expected in zip(typed, ("DEVICE", "REFRESH", "", "CLIENT", "SECRET", "REFRESH")):
        result = subprocess.run(["bash", "-ec", ours(command)], capture_output=True, text=True, check=True, timeout=60)
        assert expected in result.stdout, result
    units = {block.name: block.text for block in guide if block.language == "ini"}
    service = units["/etc/systemd/system/mail-token.service"].replace("\\\n", " ")
    started = re.findall(r"^ExecStart=(.*)$", service, re.MULTILINE)
    assert len(started) == 2
    for command in started:
        subprocess.run(shlex.split(ours(command)), check=True, timeout=60)
    server.shutdown()
    verify_units(units)


def verify_units(units):
    if shutil.which("systemd-analyze") is None:
        print("systemd-analyze is not installed: the units are not verified")
        return
    with tempfile.TemporaryDirectory() as folder:
        for name, text in units.items():
            with open(os.path.join(folder, os.path.basename(name)), "w", encoding="utf-8") as file:
                file.write(text)
        paths = [os.path.join(folder, os.path.basename(name)) for name in units]
        checked = subprocess.run(["systemd-analyze", "verify", "--man=no", *paths], capture_output=True, text=True, check=False)
        assert checked.returncode == 0 and "mail-token" not in checked.stderr, checked


def the_program_with_a_token_works(folder):
    fetch_tokens(folder)
    program, expected = programs_of(guide)[-1]
    program = replace(program, "/run/mail-token/token.json", folder + "/token.json")
    with TokenProvider(folder + "/both") as provider:
        assert run(program, provider.port, folder) == expected
        assert provider.count == 1, provider.count


with tempfile.TemporaryDirectory() as work:
    make_certificate(work)
    the_program_with_a_token_works(work)
    programs_with_a_password_work(work)
print("the programs and the commands of the pages work")
