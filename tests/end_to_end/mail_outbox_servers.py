#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_outbox_servers.py CORVANE ADDIN: MAIL_OUTBOX with real mail servers, exim4 and aiosmtpd: each kind of
security and of login, refusals, and certificates that cannot be trusted. postfix is not among them: its
Debian package conflicts with exim4's, and its master must be started by the administrator."""
import base64
import collections
import concurrent.futures
import email
import email.policy
import logging
import os
import re
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import warnings

sys.dont_write_bytecode = True
from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP, AuthResult

import mail_servers

[corvane, addin] = sys.argv[1:]
warnings.filterwarnings("ignore", module="aiosmtpd")  # AUTH without TLS is intended
logging.getLogger("mail.log").setLevel(logging.CRITICAL)  # clients that do not trust a server are, too
logging.getLogger("asyncio").setLevel(logging.CRITICAL)

PROGRAM = """
local mail = MAIL_OUTBOX.new {}
for _, word in ipairs(plc.args) do
  local name, value = word:match("^(%w+)=(.*)$")
  if value == "true" then value = true end
  mail[name] = tonumber(value) or value
end
mail.Execute = true
function cycle()
  mail()
  if mail.Busy then return end
  print("done " .. tostring(mail.Done) .. "\\nerror " .. mail.ErrorId .. "\\ntext " .. mail.ErrorText)
  print("refused " .. mail.Refused:gsub("\\n", "|"))
  plc.stop()
end
"""
INPUTS = {"Server": "127.0.0.1", "From": "Pumpe Süd <pump3@plant.example>", "To": "Änne <anne@plant.example>",
          "Subject": "Pegel zu hoch", "Text": "2,4 m ≥ 2,3 m\n.\nBitte prüfen.", "Timeout": 20}
LOGIN = {"User": mail_servers.USER, "Password": mail_servers.PASSWORD}
TOKEN = "ya29.token-of-the-test"

Result = collections.namedtuple("Result", "done error text refused log")


def send(folder, **changes):
    """Runs a program with one mail until its job has ended."""
    state = tempfile.mkdtemp(dir=folder)
    with open(state + "/program.lua", "w", encoding="utf-8") as file:
        file.write(PROGRAM)
    words = [f"{name}={value}" for name, value in {**INPUTS, **changes}.items() if value is not None]
    result = subprocess.run(
        [corvane, "run", "--addin", addin, "--cycle", "10ms", state + "/program.lua", "--", *words],
        capture_output=True, text=True, timeout=100, check=False, env={**os.environ, "STATE_DIRECTORY": state})
    found = re.fullmatch(r"done (\w+)\nerror (\d+)\ntext (.*)\nrefused (.*)\n", result.stdout)
    assert result.returncode == 0 and found, result
    for secret in changes.get("Password"), changes.get("Token"):
        assert not secret or secret not in result.stdout + result.stderr, result
    return Result(found[1] == "true", int(found[2]), found[3], found[4], result.stderr)


def check(mails, receiver="anne@plant.example"):
    """One mail has arrived, as it was."""
    [octets] = mails
    message = email.message_from_bytes(octets, policy=email.policy.default)
    assert [defect for part in message.walk() for defect in part.defects] == [], octets
    assert message["Subject"] == "Pegel zu hoch" and message["To"].addresses[0].addr_spec == receiver, octets
    assert message["From"].addresses[0].display_name == "Pumpe Süd", octets
    assert message.get_content().replace("\r\n", "\n").rstrip("\n") == INPUTS["Text"], octets
    return message


def certificate(folder, name, *options):
    """Makes folder/name.pem and folder/name.key. @return the path without its ending"""
    path = f"{folder}/{name}"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-keyout", path + ".key", "-out", path + ".pem", "-subj", "/CN=" + name, *options],
                   check=True, capture_output=True)
    os.chmod(path + ".key", 0o644)  # exim gives its rights up
    return path


def expired_certificate(folder):
    path = certificate(folder, "expired", "-addext", "subjectAltName=IP:127.0.0.1")
    os.makedirs(folder + "/ca")
    with open(folder + "/ca/index.txt", "w", encoding="ascii"):
        pass
    with open(folder + "/ca.conf", "w", encoding="ascii") as file:
        file.write(f"[ca]\ndefault_ca = test\n[test]\ndatabase = {folder}/ca/index.txt\nnew_certs_dir = {folder}/ca\n"
                   "rand_serial = yes\ndefault_md = sha256\npolicy = any\n[any]\ncommonName = supplied\n"
                   "[names]\nsubjectAltName = IP:127.0.0.1\n")
    request = subprocess.run(["openssl", "req", "-new", "-key", path + ".key", "-subj", "/CN=expired"], check=True,
                             capture_output=True).stdout
    subprocess.run(["openssl", "ca", "-batch", "-config", folder + "/ca.conf", "-selfsign", "-keyfile",
                    path + ".key", "-in", "/dev/stdin", "-out", path + ".pem", "-startdate", "20200101000000Z",
                    "-enddate", "20200102000000Z", "-extensions", "names", "-notext"], input=request, check=True,
                   capture_output=True)
    return path


def context(path):
    made = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    made.load_cert_chain(path + ".pem", path + ".key")
    return made


class OauthServer(SMTP):
    """aiosmtpd with XOAUTH2 for the token of the test."""

    async def auth_XOAUTH2(self, _server, arguments):
        wanted = f"user={mail_servers.USER}\1auth=Bearer {TOKEN}\1\1"
        if base64.b64decode(arguments[1]).decode() == wanted:
            return AuthResult(success=True, auth_data=arguments[0])
        await self.challenge_auth(b'{"status":"400"}')
        return AuthResult(success=False, handled=False)


class Peer(Controller):
    """A server in this process. `refuse`: what it answers to a recipient at each time; None: it takes him."""

    def __init__(self, host="127.0.0.1", tls=None, refuse=lambda address, time: None, final="250 2.0.0 thanks",
                 user=mail_servers.USER, **options):
        with socket.socket(socket.AF_INET6 if ":" in host else socket.AF_INET) as probe:
            probe.bind((host, 0))
            port = probe.getsockname()[1]
        self.mails, self.refuse, self.final, self.asked = [], refuse, final, collections.Counter()
        if user:
            options.update(auth_required=True, authenticator=self.authenticate)
        self.options = {"auth_require_tls": False, **options}
        super().__init__(self, hostname=host, port=port, server_hostname="peer.example", ssl_context=tls)

    def factory(self):
        return OauthServer(self, hostname="peer.example", enable_SMTPUTF8=True, **self.options)

    def authenticate(self, _server, _session, _envelope, _mechanism, data):
        return AuthResult(success=(data.login, data.password) == tuple(map(str.encode, LOGIN.values())),
                          handled=False)

    async def handle_RCPT(self, _server, _session, envelope, address, _options):
        self.asked[address] += 1
        refusal = self.refuse(address, self.asked[address])
        if refusal:
            return refusal
        envelope.rcpt_tos.append(address)
        return "250-2.1.5 fine\r\n250 2.1.5 indeed"

    async def handle_DATA(self, _server, _session, envelope):
        self.mails.append((list(envelope.rcpt_tos), envelope.original_content))
        return self.final

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def contents(self):
        return [content for _, content in self.mails]


# What MAILDIR_SERVER lacks: TLS, the other logins, and ports that answer in other ways.
EXIM = mail_servers.MAILDIR_SERVER.replace("""tls_advertise_hosts =
""", """tls_advertise_hosts = *
tls_certificate = @FOLDER@/exim.pem
tls_privatekey = @FOLDER@/exim.key
tls_on_connect_ports = @PORT_TLS@
""").replace("""daemon_smtp_ports = @PORT@
""", """daemon_smtp_ports = @PORT@ : @PORT_TLS@ : @PORT_GREY@ : @PORT_SMALL@
""").replace("64M", "${if eq{$received_port}{@PORT_SMALL@}{10K}{64M}}").replace("""to:
""", """to:
  defer condition = ${if and{{eq{$received_port}{@PORT_GREY@}}{!exists{@FOLDER@/known}}}}
        message = 4.2.0 greylisted,\\n4.2.0 come back later
""") + """PLAIN:
  driver = plaintext
  public_name = PLAIN
  server_prompts = :
  server_condition = ${if and {{eq{$auth2}{plc}}{eq{$auth3}{s3cret}}}}
  server_set_id = $auth2
XOAUTH2:
  driver = plaintext
  public_name = XOAUTH2
  server_prompts = :
  server_condition = ${if match{$auth1}{^user=plc.auth=Bearer ya29.token-of-the-test..\\$}}
  server_set_id = plc
"""


class Exim(mail_servers.Exim):
    def __init__(self, certificate_path):
        super().__init__(EXIM)
        self.path = certificate_path

    def start(self):
        for ending in ".pem", ".key":
            with open(self.path + ending, "rb") as source, open(self.folder + "/exim" + ending, "wb") as copy:
                copy.write(source.read())
            os.chmod(self.folder + "/exim" + ending, 0o644)
        super().start()


def exim_takes_mail_with_each_kind_of_security(folder, paths):
    with Exim(paths["good"]) as exim:
        for security, port in ("starttls", exim.port), ("tls", exim.ports["PORT_TLS"]), ("none", exim.port):
            for secret in {"Password": mail_servers.PASSWORD}, {"Token": TOKEN}:
                result = send(folder, Port=port, Security=security, User=mail_servers.USER,
                              CaFile=paths["good"] + ".pem", **secret)
                assert result.done and result.error == 0, (security, secret.keys(), result, exim.log())
                [mail] = exim.take()
                check([mail.bytes])
        result = send(folder, Port=exim.port, User=mail_servers.USER, Password="wr0ng", CaFile=paths["good"] + ".pem")
        assert result.error == 31 and "535" in result.text, result


def exim_refuses_for_good_and_for_now(folder, paths):
    with Exim(paths["good"]) as exim:
        inputs = {**LOGIN, "CaFile": paths["good"] + ".pem"}
        result = send(folder, Port=exim.port, To="a@plant.example; reject-b@plant.example; c@plant.example", **inputs)
        assert result.error == 30 and not result.done, result
        assert re.fullmatch(r"reject-b@plant\.example: 550 .*no such user", result.refused), result
        receivers = {mail.message["Envelope-to"] for mail in exim.take(2)}
        assert receivers == {"a@plant.example", "c@plant.example"}, receivers
        result = send(folder, Port=exim.ports["PORT_SMALL"], **{**inputs, "Text": "x" * 20000})
        assert result.error == 34 and "takes at most 10240" in result.text, result

        grey = exim.ports["PORT_GREY"]
        with concurrent.futures.ThreadPoolExecutor() as pool:
            ends = pool.submit(send, folder, Port=grey, **inputs)
            while "greylisted" not in exim.log():
                assert not ends.done(), ends.result()
                time.sleep(0.01)
            with open(exim.folder + "/known", "w", encoding="ascii"):
                pass
            result = ends.result()
        assert result.done, result
        check([mail.bytes for mail in exim.take()])


def each_login_works_with_and_without_tls(folder, paths):
    peers = {"starttls": {"tls_context": context(paths["good"]), "require_starttls": True},
             "tls": {"tls": context(paths["good"])}, "none": {}}
    for security, options in peers.items():
        for others, secret in ((["LOGIN", "XOAUTH2"], {"Password": mail_servers.PASSWORD}),
                               (["PLAIN", "XOAUTH2"], {"Password": mail_servers.PASSWORD}),
                               (["PLAIN", "LOGIN"], {"Token": TOKEN})):
            with Peer(auth_exclude_mechanism=others, **options) as peer:
                result = send(folder, Port=peer.port, Security=security, CaFile=paths["good"] + ".pem",
                              User=mail_servers.USER, **secret)
                assert result.done, (security, others, result)
                check(peer.contents())
    with Peer() as peer:
        result = send(folder, Port=peer.port, Security="none", User=mail_servers.USER, Token="expired")
        assert result.error == 31 and "Token" in result.text and peer.mails == [], result
    with Peer(user=None) as peer:
        assert send(folder, Port=peer.port, Security="none").done
        check(peer.contents())


def ipv6_works(folder, _paths):
    try:
        peer = Peer(host="::1", user=None)
    except OSError as error:
        print(f"no IPv6 on this machine ({error}): not tested")
        return
    with peer:
        assert send(folder, Server="::1", Port=peer.port, Security="none").done
        check(peer.contents())


def one_recipient_refused_for_now_is_tried_again_alone(folder, _paths):
    def grey(address, asked):
        return "450 4.2.0 greylisted" if address == "b@plant.example" and asked == 1 else None
    with Peer(user=None, refuse=grey, final="250-2.0.0 taken\r\n250 2.0.0 thanks") as peer:
        result = send(folder, Port=peer.port, Security="none", To="a@plant.example, b@plant.example",
                      Cc="c@plant.example", Bcc="d@plant.example")
        assert result.done and result.refused == "", result
        [first, second] = peer.mails
    assert first[0] == [f"{name}@plant.example" for name in "acd"] and second[0] == ["b@plant.example"], peer.mails
    assert first[1] == second[1], "not the same mail"
    # A Message-ID may end with d@plant.example, too.
    assert not re.search(rb"\bd@plant", first[1]), "a blind copy is in the header"


def certificates_that_cannot_be_trusted_have_their_own_texts(folder, paths):
    for name, trusted, text in (("expired", "expired", "has expired"), ("other", "other", "belongs to another server"),
                                ("good", "other", "is self-signed"), ("good", None, "is self-signed")):
        for security in "tls", "starttls":
            options = ({"tls": context(paths[name])} if security == "tls" else
                       {"tls_context": context(paths[name]), "require_starttls": True})
            with Peer(**options) as peer:
                result = send(folder, Port=peer.port, Security=security, **LOGIN,
                              CaFile=trusted and paths[trusted] + ".pem")
                assert result.error == 32 and text in result.text, (name, security, result)
                assert peer.mails == [] and peer.asked == {}, peer.mails


def what_is_not_offered_gets_no_mail(folder, paths):
    with Peer() as peer:
        result = send(folder, Port=peer.port, Security="starttls", **LOGIN)
        assert result.error == 33 and "does not offer STARTTLS" in result.text and peer.mails == [], result
        result = send(folder, Port=peer.port, Security="tls", **LOGIN)
        assert result.error == 33 and "does not begin with TLS" in result.text, result
    # 0.0.0.0 leads to this machine, but is not an address of the loopback.
    with Peer() as peer:
        for secret in {"Password": mail_servers.PASSWORD}, {"Token": TOKEN}:
            remote = {"Server": "0.0.0.0", "Port": peer.port, "Security": "none", "User": mail_servers.USER, **secret}
            result = send(folder, **remote)
            assert result.error == 33 and "is not secure" in result.text and peer.mails == [], result
            assert send(folder, **remote, Insecure="true").done and len(peer.mails) == 1, peer.mails
            peer.mails.clear()
    with Peer(auth_exclude_mechanism=["XOAUTH2"]) as peer:
        result = send(folder, Port=peer.port, Security="none", User=mail_servers.USER, Token=TOKEN)
        assert result.error == 33 and "XOAUTH2" in result.text and peer.mails == [], result


with tempfile.TemporaryDirectory() as work:
    certificates = {"good": certificate(work, "good", "-addext", "subjectAltName=IP:127.0.0.1,IP:::1"),
                    "other": certificate(work, "other", "-addext", "subjectAltName=DNS:other.example"),
                    "expired": expired_certificate(work)}
    os.chmod(work, 0o755)
    tests = (exim_takes_mail_with_each_kind_of_security, exim_refuses_for_good_and_for_now,
             each_login_works_with_and_without_tls, ipv6_works, one_recipient_refused_for_now_is_tried_again_alone,
             certificates_that_cannot_be_trusted_have_their_own_texts, what_is_not_offered_gets_no_mail)
    with concurrent.futures.ThreadPoolExecutor(3) as several:
        for test in [several.submit(test, work, certificates) for test in tests]:
            test.result()
