# SPDX-License-Identifier: MIT
"""Real mail servers for the tests: each has its own folder and port, and ends with its `with` block."""
import email
import email.policy
import getpass
import glob
import json
import os
import pwd
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

USER, PASSWORD = "plc", "s3cret"
EXIM = "/usr/sbin/exim4"


class Server:
    """A process with its own folder, `folder`, and a port, `port`."""

    def __enter__(self):
        self.folder = tempfile.mkdtemp(prefix="corvane-test-")
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        process = getattr(self, "process", None)
        if process:
            process.terminate()
            process.wait(timeout=30)
        remove(self.folder)

    def take(self, count=1, seconds=30):
        """Waits for `count` messages, removes them from the server and returns them."""
        end = time.monotonic() + seconds
        while len(self.files()) < count and time.monotonic() < end:
            time.sleep(0.01)
        paths = self.files()
        assert len(paths) == count, paths
        mails = [Mail(path) for path in paths]
        for path in paths:
            os.remove(path)
        return mails


class Mail:
    """A message as Python's email package reads it."""

    def __init__(self, path):
        with open(path, "rb") as file:
            self.bytes = file.read()
        self.message = email.message_from_bytes(self.bytes, policy=email.policy.default)
        self.defects = [defect for part in self.message.walk() for defect in part.defects]

    def text(self):
        part = next(part for part in self.message.walk() if part.get_content_type() == "text/plain")
        return part.get_payload(decode=True).decode().replace("\r\n", "\n")

    def attachments(self):
        return {part.get_filename(): part.get_payload(decode=True)
                for part in self.message.walk() if part.get_filename()}


class Sink(Server):
    """The example's server (aiosmtpd)."""

    def __init__(self, project, *options):
        self.command = ["/usr/bin/python3", project + "/examples/mail_sink.py", *options]

    def start(self):
        path = self.folder + "/output"
        with open(path, "w", encoding="utf-8") as output:
            self.process = subprocess.Popen([*self.command, self.folder], stdout=output)
        with open(path, encoding="utf-8") as output:
            line = ""
            while not line.endswith("\n") and self.process.poll() is None:
                line += output.readline()
                time.sleep(0.01)
        self.port = int(line.removeprefix("READY "))

    def files(self):
        return sorted(glob.glob(self.folder + "/*.eml"))

    def last_envelope(self):
        with open(max(glob.glob(self.folder + "/*.json")), encoding="utf-8") as file:
            return json.load(file)


class Finicky:
    """Accepts every message, `count` of them so far, and then calls `confirm` with the connection, to answer it."""

    def __init__(self, confirm):
        self.confirm, self.count = confirm, 0

    def __enter__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def serve(self):
        try:
            while True:
                threading.Thread(target=self.talk, args=self.listener.accept()[:1], daemon=True).start()
        except OSError:  # the listener is closed
            pass

    def talk(self, connection):
        with connection, connection.makefile("rb") as lines:
            connection.sendall(b"220 finicky.example\r\n")
            for reply in b"250", b"334", b"334", b"235", b"250", b"250", b"354":
                lines.readline()
                connection.sendall(reply + b" go on\r\n")
            while lines.readline() != b".\r\n":
                pass
            self.count += 1
            self.confirm(connection)
            lines.read()  # until the client is gone


class Exim(Server):
    """exim4 with the configuration `text`, in which @FOLDER@, @PORT@ and @USER@ are filled in, and further
    ports, such as @PORT_TLS@, which are then in `ports`."""

    def __init__(self, text):
        self.text = text

    def start(self):
        # Started by the administrator, it switches to this user; otherwise it has only our rights.
        user = "Debian-exim" if os.getuid() == 0 else getpass.getuser()
        os.chmod(self.folder, 0o755)
        for name in "spool", "log", "new", "cur", "tmp":
            os.mkdir(f"{self.folder}/{name}")
            if os.getuid() == 0:
                os.chown(f"{self.folder}/{name}", pwd.getpwnam(user).pw_uid, -1)
        for _ in range(5):  # somebody else may take the port before exim does
            self.port = free_port()
            self.ports = {name: free_port() for name in set(re.findall("@(PORT_[A-Z]+)@", self.text))}
            filled = {"@FOLDER@": self.folder, "@PORT@": str(self.port), "@USER@": user,
                      **{f"@{name}@": str(port) for name, port in self.ports.items()}}
            text = self.text
            for name, value in filled.items():
                text = text.replace(name, value)
            with open(self.folder + "/exim.conf", "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(self.folder + "/exim.conf", 0o644)
            self.process = subprocess.Popen([EXIM, "-C", self.folder + "/exim.conf", "-bdf"],
                                            stderr=subprocess.DEVNULL, start_new_session=True)
            if self.greets():
                return
        raise RuntimeError("exim4 does not start: " + self.log())

    def greets(self):
        """Waits for the greeting: it listens before it reads its certificates, which may take seconds."""
        while self.process.poll() is None:
            with socket.socket() as probe:
                probe.settimeout(60)
                if probe.connect_ex(("127.0.0.1", self.port)) == 0 and probe.recv(3) == b"220":
                    return True
            time.sleep(0.01)
        return False

    def __exit__(self, *_):
        process = getattr(self, "process", None)
        if process:
            process.terminate()
            process.wait(timeout=30)
            end_group(process.pid)  # deliveries under way would write into the folder
        super().__exit__()

    def log(self):
        text = ""
        for path in glob.glob(self.folder + "/log/*"):
            with open(path, encoding="utf-8") as file:
                text += file.read()
        return text

    def files(self):
        return sorted(glob.glob(self.folder + "/new/*"))


def remove(folder):
    """Removes the folder, into which a delivery with its own session may still be writing."""
    end = time.monotonic() + 30
    while os.path.exists(folder):
        try:
            shutil.rmtree(folder)
        except OSError:
            if time.monotonic() > end:
                raise
            time.sleep(0.01)


def end_group(group):
    """Ends the processes of a session and waits until the last one is gone."""
    try:
        while True:
            os.killpg(group, signal.SIGKILL)
            time.sleep(0.01)
    except ProcessLookupError:
        pass


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


# Keeps what it accepts in a Maildir; refuses recipients that begin with "reject".
MAILDIR_SERVER = """
exim_user = @USER@
spool_directory = @FOLDER@/spool
log_file_path = @FOLDER@/log/%slog
pid_file_path = @FOLDER@/spool/exim.pid
primary_hostname = exim.example
local_interfaces = 127.0.0.1
daemon_smtp_ports = @PORT@
never_users =
host_lookup =
rfc1413_query_timeout = 0s
message_size_limit = 64M
keep_environment =
tls_advertise_hosts =
helo_allow_chars = _
acl_smtp_mail = from
acl_smtp_rcpt = to
acl_smtp_data = accept
begin acl
from:
  require authenticated = *
  accept
to:
  deny message = no such user
       local_parts = ^reject
  accept
begin routers
all:
  driver = accept
  transport = maildir
begin transports
maildir:
  driver = appendfile
  maildir_format
  directory = @FOLDER@
  envelope_to_add
  return_path_add
  user = @USER@
begin authenticators
LOGIN:
  driver = plaintext
  public_name = LOGIN
  server_prompts = Username:: : Password::
  server_condition = ${if and {{eq{$auth1}{plc}}{eq{$auth2}{s3cret}}}}
  server_set_id = $auth1
"""
