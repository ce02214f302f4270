#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_pages.py PROJECT CORVANE: what docs/mail.md and docs/blocks/send_email.md show. Their programs and the
commands run with the guide's own relay, exim4 with the configuration shown, which passes the messages
on to a provider: a mail server that insists on TLS and on its own password. Only names, ports and
folders are replaced. What the guide says of failures is so, too."""
import os
import re
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import mail_servers
from page import commands, output_pattern, read_blocks, shape

project, corvane = sys.argv[1:]
PROVIDER = ("--user", "plant@provider.example", "--password", "provider-password")


def programs_of(page):
    """Each program with its output."""
    blocks = read_blocks(project, page)
    pairs = [(block.text, blocks[number + 1]) for number, block in enumerate(blocks) if block.language == "lua"]
    assert pairs and all(following.language == "output" for _, following in pairs)
    return [(program, following.text) for program, following in pairs]


programs = programs_of("docs/blocks/send_email.md")
[guide_program] = programs_of("docs/mail.md")
guide_blocks = read_blocks(project, "docs/mail.md")
[relay_configuration] = [block.text for block in guide_blocks if block.language == "exim"]
with open(project + "/docs/mail.md", encoding="utf-8") as file:
    guide = file.read()


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


def relay(host, port, certificates, edit=lambda text: text):
    text = edit(relay_configuration)
    text = replace(text, "daemon_smtp_ports = 25", "daemon_smtp_ports = @PORT@")
    text = replace(text, "mail.provider.example::587", f"{host}::{port}")
    # The provider is this machine, which exim would take for a loop; and nobody vouches for it.
    text = replace(text, "  transport = provider\n", "  transport = provider\n  self = send\n")
    text = replace(text, "tls_verify_certificates = system", f"tls_verify_certificates = {certificates}")
    places = ("exim_user = @USER@\nspool_directory = @FOLDER@/spool\nlog_file_path = @FOLDER@/log/%slog\n"
              "pid_file_path = @FOLDER@/spool/exim.pid\n")
    return mail_servers.Exim(places + text)


def run(program, port):
    """What the program prints."""
    with tempfile.NamedTemporaryFile("w", suffix=".lua") as file:
        file.write(replace(program, "Port = 25", f"Port = {port}"))
        file.flush()
        result = subprocess.run([corvane, "run", "--cycle", "5ms", file.name],
                                capture_output=True, text=True, timeout=60, check=False)
    assert result.returncode == 0, result
    return result.stdout


def wait_until(condition, exim):
    """The relay hands on, or fails, when the block has long gone on."""
    end = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < end, exim.log()
        time.sleep(0.01)


def administrate(exim, command):
    """A command for the machine's relay, given to this one."""
    command = command.removeprefix("sudo ").replace("/var/log/exim4/", exim.folder + "/log/")
    command = re.sub(r"^exim4 ", f"{mail_servers.EXIM} -C {exim.folder}/exim.conf ", command)
    result = subprocess.run(["bash", "-ec", command], capture_output=True, text=True, timeout=60, check=False)
    assert result.returncode == 0, result
    # That another configuration than the machine's is used leaves a note of its own.
    return re.sub(r".*exim user lost privilege.*\n", "", result.stdout)


def mail_shape(text):
    """What stays the same from one message and one machine to the next."""
    text = re.sub(r"\b\w{6}-\w{6}-\w\w\b", "ID", text)  # first: "1s" at its end is no duration
    text = re.sub(r"Exim 4.*", "Exim 4", shape(text))
    text = re.sub(r"127\.0\.0\.1:\d+", "127.0.0.1:PORT", text)
    text = re.sub(r"H=\S+ \[[\d.]+\]", "H", text)
    return re.sub(r" (S=\d+|id=\S+@\S+|X=\S+|C=\".*\")", "", text)


def programs_run_with_any_server():
    """As the page's reader would try it first: a server without TLS."""
    with mail_servers.Sink(project) as server:
        for program, expected in programs:
            assert run(program, server.port) == expected
            server.take()


def programs_run_with_the_relay(provider, exim):
    for program, expected in (*programs, guide_program):
        assert run(program, exim.port) == expected
    mails = {mail.message["Subject"]: mail for mail in provider.take(3)}
    level = mails["Level too high"]
    assert [a.addr_spec for a in level.message["To"].addresses] == [
        "operator@plant.example", "service@plant.example"], level.message["To"]
    assert level.text().startswith("2.42 m at the inlet.\nThe limit is 2.40 m.\n"), level.text()
    assert mails["Alarm"].message["Reply-To"] == "service@plant.example"
    assert mails["Relay"].text() == "The relay works.\n\n", mails["Relay"].text()


def long_lines_pass_the_relay(provider, exim):
    """A line far longer than mail servers like."""
    assert send(exim.port, Message="x" * 50000) == "code 0\n"
    [mail] = provider.take()
    assert "x" * 50000 in mail.text()


def send(port, **inputs):
    """What the block says to a message."""
    values = {"Server": "127.0.0.1", "Port": port, "Login": "plc", "Password": "s3cret", "SenderName": "P",
              "SenderMail": "p@plant.example", "Recipient": "o@plant.example", "Message": "text", **inputs}
    words = [f"{name}={value}" for name, value in values.items()]
    result = subprocess.run([corvane, "run", project + "/tests/end_to_end/send_email.lua", "--", *words],
                            capture_output=True, text=True, timeout=60, check=False)
    assert result.returncode == 0, result
    return result.stdout


def the_commands_show_what_the_guide_shows(provider, exim):
    sessions = [block.text for block in guide_blocks if block.language == "console"]
    [by_hand] = [text for text in sessions if text.startswith("$ swaks")]
    [afterwards] = [text for text in sessions if text.startswith("$ sudo exim4 -bp")]
    [command] = commands(by_hand)
    before = exim.log().count("Completed")
    command = replace(command, "--server 127.0.0.1 ", f"--server 127.0.0.1:{exim.port} ")
    result = subprocess.run(command.split(), capture_output=True, text=True, timeout=60, check=False)
    expected = output_pattern(mail_shape(by_hand.split("\n", 1)[1]))
    assert result.returncode == 0 and re.fullmatch(expected, mail_shape(result.stdout)), result
    provider.take()

    wait_until(lambda: exim.log().count("Completed") > before, exim)
    queue, log = commands(afterwards)
    wait_until(lambda: administrate(exim, queue) == "", exim)  # "Completed" stands in the log before
    lines = administrate(exim, replace(log, "-n 3", "-n 100")).splitlines()[-3:]
    assert [mail_shape(line) for line in lines] == [mail_shape(line) for line in afterwards.splitlines()[2:]], lines


def the_block_tells_what_is_wrong_with_the_relay(exim):
    codes = {
        103: send(mail_servers.free_port()),
        406: send(exim.port, Password="wrong"),
        300: send(exim.port, SenderMail="no address"),
    }
    with relay("localhost", 1, "system", lambda text: text.split("begin authenticators")[0]) as without_login:
        codes[302] = send(without_login.port)
    with relay("localhost", 1, "system", lambda text: replace(text, "size_limit = 16M", "size_limit = 1K")) as small:
        codes[306] = send(small.port, Message="x" * 2000)
    for code, said in codes.items():
        assert said == f"code {code}\n", (code, said)
        assert f"\n| {code} | " in guide, code


def the_log_tells_what_is_wrong_with_the_provider(certificate, certificates):
    """One relay for each failure; whatever it is, the block's message is taken."""
    def fails(told, *where, recipient="o@plant.example"):
        with relay(*where) as exim:
            said = send(exim.port, Recipient=recipient)
            assert said == "code 0\n", (said, exim.log())
            for text in told:
                wait_until(lambda t=text: t in exim.log(), exim)
                assert f"`{text}`" in guide, text

    fails(["no IP address found", "lookup of host"], "no-such-host.invalid", 587, "system")
    with mail_servers.Sink(project, *PROVIDER) as provider:
        fails(["a TLS session is required"], "localhost", provider.port, "system")
    with mail_servers.Sink(project, "--certificate", certificate, *PROVIDER) as provider:
        fails(["certificate verification failed"], "localhost", provider.port, "system")
        fails(["**"], "localhost", provider.port, certificates, recipient="reject@plant.example")
    with mail_servers.Sink(project, "--certificate", certificate, *PROVIDER[:3], "another") as provider:
        fails(["authenticator failed", "535"], "localhost", provider.port, certificates)


def the_relay_keeps_messages_while_the_provider_is_away(certificate, certificates):
    port = mail_servers.free_port()
    with relay("localhost", port, certificates) as exim:
        assert send(exim.port) == "code 0\n"
        wait_until(lambda: "Connection refused" in exim.log(), exim)
        assert "`Connection refused`" in guide and "`sudo exim4 -qff`" in guide
        waiting = administrate(exim, "sudo exim4 -bp")
        assert "<p@plant.example>" in waiting and "o@plant.example" in waiting, waiting
        with mail_servers.Sink(project, "--certificate", certificate, "--port", str(port), *PROVIDER) as provider:
            administrate(exim, "sudo exim4 -qff")
            provider.take()


programs_run_with_any_server()
with tempfile.TemporaryDirectory() as folder:
    both, its_certificate = make_certificate(folder), folder + "/certificate"
    with mail_servers.Sink(project, "--certificate", both, *PROVIDER) as server, \
            relay("localhost", server.port, its_certificate) as guides_relay:
        programs_run_with_the_relay(server, guides_relay)
        long_lines_pass_the_relay(server, guides_relay)
        the_commands_show_what_the_guide_shows(server, guides_relay)
        the_block_tells_what_is_wrong_with_the_relay(guides_relay)
    the_log_tells_what_is_wrong_with_the_provider(both, its_certificate)
    the_relay_keeps_messages_while_the_provider_is_away(both, its_certificate)
print("the programs, the relay and the commands of the pages work")
