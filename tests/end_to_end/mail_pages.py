#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_pages.py PROJECT CORVANE: what docs/mail.md says about SEND_EMAIL, docs/blocks/send_email.md and the mail part
of docs/security.md show. Their programs and commands run with the guide's own relay, exim4 with the configuration shown, which
passes the messages on to a provider: a mail server that insists on TLS and on its own password. Only names,
ports and folders are replaced. What the guide says about failures is checked as well."""
import os
import re
import socket
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import mail_servers
from page import commands, output_pattern, read_blocks, shape
from patience import TIME_FACTOR

project, corvane = sys.argv[1:]
PROVIDER = ("--user", "plant@provider.example", "--password", "provider-password")


def programs_of(page):
    """Each program of the page with its output."""
    blocks = read_blocks(project, page)
    pairs = [(block.text, blocks[number + 1]) for number, block in enumerate(blocks) if block.language == "lua"]
    assert pairs and all(following.language == "output" for _, following in pairs)
    return [(program, following.text) for program, following in pairs]


programs = programs_of("docs/blocks/send_email.md")
[guide_program] = [pair for pair in programs_of("docs/mail.md") if "SEND_EMAIL" in pair[0]]
guide_blocks = read_blocks(project, "docs/mail.md")
[relay_configuration] = [block.text for block in guide_blocks if block.language == "exim"]
with open(project + "/docs/mail.md", encoding="utf-8") as file:
    guide = file.read()


def replace(text, old, new):
    assert text.count(old) == 1, (old, text)
    return text.replace(old, new)


def make_certificate(folder):
    """Makes a file with a certificate for localhost and its key."""
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
    # The provider is this machine, which exim would take for a loop; and its certificate is self-signed.
    text = replace(text, "  transport = provider\n", "  transport = provider\n  self = send\n")
    text = replace(text, "tls_verify_certificates = system", f"tls_verify_certificates = {certificates}")
    places = ("exim_user = @USER@\nspool_directory = @FOLDER@/spool\nlog_file_path = @FOLDER@/log/%slog\n"
              "pid_file_path = @FOLDER@/spool/exim.pid\n")
    return mail_servers.Exim(places + text)


def run(program, port):
    """What the program prints."""
    with tempfile.NamedTemporaryFile("w", suffix=".lua", encoding="utf-8") as file:
        file.write(replace(program, "Port = 25", f"Port = {port}"))
        file.flush()
        result = subprocess.run([corvane, "run", "--cycle", "5ms", file.name],
                                capture_output=True, text=True, timeout=60, check=False)
    assert result.returncode == 0, result
    return result.stdout


def wait_until(condition, exim):
    """The relay passes a message on, or fails, long after the block has gone on."""
    end = time.monotonic() + 30 * TIME_FACTOR
    while not condition():
        assert time.monotonic() < end, exim.log()
        time.sleep(0.01)


def administrate(exim, command):
    """Runs a command for the machine's relay with this one."""
    command = command.removeprefix("sudo ").replace("/var/log/exim4/", exim.folder + "/log/")
    command = re.sub(r"^exim4 ", f"{mail_servers.EXIM} -C {exim.folder}/exim.conf ", command)
    result = subprocess.run(["bash", "-ec", command], capture_output=True, text=True, timeout=60, check=False)
    assert result.returncode == 0, result
    # Using another configuration than the machine's leaves a note.
    return re.sub(r".*exim user lost privilege.*\n", "", result.stdout)


def mail_shape(text):
    """What stays the same from one message and one machine to the next."""
    text = re.sub(r"\b\w{6}-\w{6}-\w\w\b", "ID", text)  # first, since "1s" at its end is not a duration
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
    """A line far longer than mail servers usually accept."""
    assert send(exim.port, Message="x" * 50000) == "code 0\n"
    [mail] = provider.take()
    assert "x" * 50000 in mail.text()


def send(port, **inputs):
    """What the block reports for a message."""
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
    wait_until(lambda: administrate(exim, queue) == "", exim)  # "Completed" is logged first
    lines = administrate(exim, replace(log, "-n 3", "-n 100")).splitlines()[-3:]
    assert [mail_shape(line) for line in lines] == [mail_shape(line) for line in afterwards.splitlines()[2:]], lines


def the_relay_repairs_what_spam_filters_dislike(provider, exim):
    """With and without an attachment: time zone, identification, charset, encoded header fields."""
    text = "Pegel 2,42 m \u2265 2,40 m\r\nBitte pr\u00fcfen."
    subject, name = "F\u00fcllstand zu hoch", "Pumpwerk S\u00fcd, Halle 2"
    for attachment in "", "/etc/hostname":
        assert send(exim.port, Message=text, Subject=subject, SenderName=name, Attachment=attachment) == "code 0\n"
        [mail] = provider.take()
        message = mail.message
        assert not mail.defects, mail.defects
        assert len(message.get_all("Date")) == 1 and re.fullmatch(r"\w\w\w, .* [+-]\d{4}", message["Date"]), message["Date"]
        assert abs(message["Date"].datetime.timestamp() - time.time()) < 60, message["Date"]
        assert message["Message-ID"].endswith("@plc.example>"), message["Message-ID"]
        assert mail.bytes.split(b"\r\n\r\n")[0].isascii(), mail.bytes
        assert message["Subject"] == subject and "<p@plant.example>" in message["From"], message.items()
        assert name in message["From"], message["From"]
        body = message.get_body() if attachment else message
        assert body.get_content_charset() == "utf-8" and body["Content-Transfer-Encoding"] == "8bit", body.items()
        assert mail.text().rstrip("\n") == text.replace("\r", ""), mail.text()
        assert len(mail.attachments()) == (1 if attachment else 0), mail.bytes


def the_relay_leaves_ascii_headers_and_joins_lines_at_a_bare_line_feed(provider, exim):
    assert send(exim.port, Subject="Level", Message="one\ntwo\r\nthree") == "code 0\n"
    [mail] = provider.take()
    assert mail.message["Subject"] == "Level" and mail.message["From"] == "P <p@plant.example>", mail.message.items()
    assert mail.text() == "one two\nthree\n\n", mail.text()


FAILURES = """
local failed, blocks = 0, {}
local function block(sender)
  return SEND_EMAIL.new { Server = "127.0.0.1", Port = 25, Login = "plc", Password = "s3cret", SenderName = "P",
                          SenderMail = sender, Recipient = "o@plant.example", Message = "text", Send = true }
end
for i = 1, 40 do blocks[i] = block("no address") end
local good
function cycle()
  for _, b in ipairs(blocks) do
    b()
    if b.Sent then assert(b.Code == 300, b.Code) failed = failed + 1 end
  end
  if failed < #blocks then return end
  good = good or block("p@plant.example")
  good()
  if good.Sent then print("code " .. good.Code) plc.stop() end
end
"""


def failed_messages_do_not_lock_the_others_out(provider, exim):
    """Each leaves its connection open; exim's own limit is 20."""
    assert run(FAILURES, exim.port) == "code 0\n"
    provider.take()
    [accept_max] = re.findall(r"^smtp_accept_max = (\d+)$", relay_configuration, re.MULTILINE)
    assert f"accepts {accept_max} connections at once" in guide

    def small(text):
        text = replace(text, f"smtp_accept_max = {accept_max}", "smtp_accept_max = 2")
        return replace(text, "smtp_receive_timeout = 1m", f"smtp_receive_timeout = {5 * TIME_FACTOR}s")

    with relay("localhost", 1, "system", small) as full:
        silent = []

        def one_more_is_silent():
            """Exim may still count the connection that found out that it had started."""
            connection = socket.create_connection(("127.0.0.1", full.port))
            if connection.recv(3) == b"220":
                silent.append(connection)
            return len(silent) == 2

        wait_until(one_more_is_silent, full)
        assert send(full.port) == "code 401\n" and "\n| 401 | " in guide
        wait_until(lambda: send(full.port) == "code 0\n", full)


def a_strangers_text_is_harmless_when_it_is_cleaned(provider, exim):
    """As it is, it begins another mail; the security page's function makes it a text."""
    [function] = [found for block in read_blocks(project, "docs/security.md") if block.language == "lua"
                  for found in re.findall(r"^local function mail_text.*?^end\n", block.text, re.MULTILINE | re.DOTALL)]
    program = function + """
local text = "Level?LINE_END.\\r\\nMAIL FROM:<eve@plant.example>\\r\\nRCPT TO:<all@plant.example>\\r\\nDATA\\r\\n" ..
             "Subject: Forged\\r\\n\\r\\n..two\\r.\\n.\\0"
local mail = SEND_EMAIL.new { Server = "127.0.0.1", Port = 25, Login = "plc", Password = "s3cret", SenderName = "P",
                              SenderMail = "p@plant.example", Recipient = "o@plant.example", Send = true }
mail.Message = CLEAN(text)
function cycle()
  mail()
  if mail.Sent then print("code " .. mail.Code) plc.stop() end
end
"""
    def with_text(line_end, cleaned_by, port):
        return run(program.replace("LINE_END", line_end).replace("CLEAN", cleaned_by), port)

    clean = ("Level?\n.\nMAIL FROM:<eve@plant.example>\nRCPT TO:<all@plant.example>\nDATA\nSubject: Forged\n\n"
             "..two\n.\n.\n\n")
    with mail_servers.Sink(project) as plain:
        assert with_text("\\r\\n", "", plain.port) == "code 304\n"
        assert [mail.message["Subject"].strip() for mail in plain.take(2)] == ["", "Forged"]
        for line_end in "\\r\\n", "\\n", "\\r":
            assert with_text(line_end, "mail_text", plain.port) == "code 0\n"
            [mail] = plain.take()
            assert mail.text() == clean, mail.text()
    assert with_text("\\n", "mail_text", exim.port) == "code 0\n"
    [mail] = provider.take()
    assert mail.text() == clean, mail.text()


def the_alarm_does_not_flood():
    """Servers that accept it each time, but never confirm it as the block expects. The pauses are shorter than a cycle."""
    alarm = replace(programs[1][0], "local pause, longest = 60, 3600", "local pause, longest = 0.001, 0.002")

    def confirm_in_two_lines(connection):
        connection.sendall(b"250-2.0.0 taken\r\n250 2.0.0 thanks\r\n")

    def close(connection):
        connection.shutdown(socket.SHUT_RDWR)

    for confirm, copies, printed in (confirm_in_two_lines, 1, "sent\n"), (close, 3, "not confirmed\n"):
        with mail_servers.Finicky(confirm) as server:
            assert run(alarm, server.port) == printed
            assert server.count == copies, server.count


def the_block_reports_what_is_wrong_with_the_relay(exim):
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


def the_log_says_what_is_wrong_with_the_provider(certificate, certificates):
    """One relay for each failure; whatever it is, the relay accepts the block's message."""
    def fails(logged, *where, recipient="o@plant.example"):
        with relay(*where) as exim:
            said = send(exim.port, Recipient=recipient)
            assert said == "code 0\n", (said, exim.log())
            for text in logged:
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
the_alarm_does_not_flood()
with tempfile.TemporaryDirectory() as folder:
    both, its_certificate = make_certificate(folder), folder + "/certificate"
    with mail_servers.Sink(project, "--certificate", both, *PROVIDER) as server, \
            relay("localhost", server.port, its_certificate) as guides_relay:
        programs_run_with_the_relay(server, guides_relay)
        long_lines_pass_the_relay(server, guides_relay)
        the_relay_repairs_what_spam_filters_dislike(server, guides_relay)
        the_relay_leaves_ascii_headers_and_joins_lines_at_a_bare_line_feed(server, guides_relay)
        failed_messages_do_not_lock_the_others_out(server, guides_relay)
        a_strangers_text_is_harmless_when_it_is_cleaned(server, guides_relay)
        the_commands_show_what_the_guide_shows(server, guides_relay)
        the_block_reports_what_is_wrong_with_the_relay(guides_relay)
    the_log_says_what_is_wrong_with_the_provider(both, its_certificate)
    the_relay_keeps_messages_while_the_provider_is_away(both, its_certificate)
print("the programs, the relay and the commands of the pages work")
