#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""send_email_page.py PROJECT CORVANE: what docs/blocks/send_email.md shows. Its programs run with the
page's own relay, exim4 with the configuration shown, which passes the messages on to a provider: a
mail server that insists on TLS and on its own password. Only names, ports and folders are replaced."""
import os
import re
import subprocess
import sys
import tempfile

import mail_servers

project, corvane = sys.argv[1:]

with open(project + "/docs/blocks/send_email.md", encoding="utf-8") as file:
    blocks = re.findall(r"^```(\w+)\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
programs = [(text, blocks[number + 1]) for number, (language, text) in enumerate(blocks) if language == "lua"]
[relay_configuration] = [text for language, text in blocks if language == "exim"]


def replace(text, old, new):
    assert text.count(old) == 1, (old, text)
    return text.replace(old, new)


def make_certificate(folder):
    """A file with a certificate for localhost, and its key."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                    "-keyout", folder + "/key", "-out", folder + "/certificate"],
                   check=True, capture_output=True)
    with open(folder + "/both", "w", encoding="utf-8") as both:
        for name in "key", "certificate":
            with open(f"{folder}/{name}", encoding="utf-8") as part:
                both.write(part.read())
    os.chmod(folder, 0o755)
    return folder + "/both"


def relay(provider, certificates):
    text = replace(relay_configuration, "daemon_smtp_ports = 25", "daemon_smtp_ports = @PORT@")
    text = replace(text, "mail.provider.example::587", f"localhost::{provider.port}")
    # The provider is this machine, which exim would take for a loop; and nobody vouches for it.
    text = replace(text, "  transport = provider\n", "  transport = provider\n  self = send\n")
    text = replace(text, "tls_verify_certificates = system", f"tls_verify_certificates = {certificates}")
    places = ("exim_user = @USER@\nspool_directory = @FOLDER@/spool\nlog_file_path = @FOLDER@/log/%slog\n"
              "pid_file_path = @FOLDER@/spool/exim.pid\n")
    return mail_servers.Exim(places + text)


def run(program, expected, port):
    with tempfile.NamedTemporaryFile("w", suffix=".lua") as file:
        file.write(replace(program, "Port = 25", f"Port = {port}"))
        file.flush()
        result = subprocess.run([corvane, "run", "--cycle", "5ms", file.name],
                                capture_output=True, text=True, timeout=60)
    assert result.returncode == 0 and result.stdout == expected and " warning " not in result.stderr, result


assert len(programs) == 2 and all(following[0] == "output" for _, following in programs)

# As the page's reader would try it first: a server without TLS.
with mail_servers.Sink(project) as server:
    for program, (_, expected) in programs:
        run(program, expected, server.port)
        server.take()

# Through the relay.
with tempfile.TemporaryDirectory() as folder:
    certificate = make_certificate(folder)
    with mail_servers.Sink(project, "--certificate", certificate, "--user", "plant@provider.example",
                           "--password", "provider-password") as provider, \
            relay(provider, folder + "/certificate") as exim:
        for program, (_, expected) in programs:
            run(program, expected, exim.port)
        [first, second] = provider.take(2)
        mails = {mail.message["Subject"]: mail for mail in (first, second)}
        alarm = mails["Level too high"]
        assert [a.addr_spec for a in alarm.message["To"].addresses] == [
            "operator@plant.example", "service@plant.example"], alarm.message["To"]
        assert alarm.text().startswith("2.42 m at the inlet.\nThe limit is 2.40 m.\n"), alarm.text()
        assert mails["Alarm"].message["Reply-To"] == "service@plant.example"

        # A line far longer than mail servers like passes the relay, too.
        words = [f"{name}={value}" for name, value in {
            "Server": "127.0.0.1", "Port": exim.port, "Login": "plc", "Password": "s3cret", "SenderName": "P",
            "SenderMail": "p@plant.example", "Recipient": "o@plant.example", "Message": "x" * 50000}.items()]
        result = subprocess.run([corvane, "run", project + "/tests/end_to_end/send_email.lua", "--", *words],
                                capture_output=True, text=True, timeout=60)
        assert result.stdout == "code 0\n", result
        [mail] = provider.take()
        assert "x" * 50000 in mail.text()
print("the page's programs and its relay work")
