# SPDX-License-Identifier: MIT
"""The service corvane@NAME under systemd, for packages_inside.py: what it may do and what not, that it is watched,
and that programs and what they keep survive an upgrade and a removal."""
import json
import os
import pathlib
import re
import socketserver
import subprocess
import threading
import time
import urllib.request

from mail_servers import Sink, free_port
from simulated_modem import SimulatedModem

PATIENCE = 60
PROJECT = "/srv/project"
DROP_IN = "/etc/systemd/system/corvane@.service.d"
STATE = "/var/lib/corvane"


def run(*words):
    result = subprocess.run(words, capture_output=True, text=True, check=False)
    assert result.returncode == 0, (words, result.stdout, result.stderr)
    return result.stdout


def shown(name, key):
    """A property of the unit of this program."""
    return run("systemctl", "show", "--value", "--property", key, f"corvane@{name}").strip()


def journal(name):
    run("journalctl", "--sync")
    return run("journalctl", "--output=cat", "--quiet", "--unit", f"corvane@{name}")


def await_that(condition, *names):
    """Waits for the condition of the programs."""
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "\n".join(run("systemctl", "status", "--no-pager", f"corvane@{name}") +
                                                 journal(name) for name in names)
        time.sleep(0.02)


def write_program(name, text, config=""):
    pathlib.Path(f"/etc/corvane/{name}.lua").write_text(text, encoding="utf-8")
    pathlib.Path(f"/etc/corvane/{name}.conf").write_text(config, encoding="utf-8")


def change_unit(text):
    """What the administrator writes with `systemctl edit corvane@`; empty: nothing."""
    if text:
        os.makedirs(DROP_IN, exist_ok=True)
        pathlib.Path(DROP_IN, "override.conf").write_text("[Service]\n" + text, encoding="utf-8")
    else:
        os.remove(DROP_IN + "/override.conf")
        os.rmdir(DROP_IN)
    run("systemctl", "daemon-reload")


def remove_programs(*names):
    run("systemctl", "stop", *(f"corvane@{name}" for name in names))
    for name in names:
        os.remove(f"/etc/corvane/{name}.lua")
        os.remove(f"/etc/corvane/{name}.conf")


# ---- What a program can do: every add-in, with a command of each kind.

BLOCKS = r"""
local mail_port, plain_port, modbus_port = plc.args[1], plc.args[2], plc.args[3]
local kept = plc.retain("kept", { starts = 0 })
kept.starts = kept.starts + 1
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "filtered", Execute = true }
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local sms_of_then = SEND_SMS.new { Port = 2, Receiver = "15550105678", Message = "filtered" }
local inbox_of_then = READ_SMS.new { Port = 2, Read = true }
local mail = MAIL_OUTBOX.new {
  Server = "localhost", Port = tonumber(mail_port), User = "plc", Password = "s3cret", CaFile = "/etc/corvane/ca.pem",
  From = "pump@plant.example", To = "operator@plant.example", Subject = "over TLS", Text = "filtered",
  Attachments = "/etc/hostname", Execute = true,
}
local mail_of_then = SEND_EMAIL.new {
  Server = "127.0.0.1", Port = tonumber(plain_port), Login = "plc", Password = "s3cret", SenderMail = "pump@plant.example",
  Recipient = "operator@plant.example", Subject = "plain", Message = "filtered", Send = true,
}
local register = MODBUS_TCP.new { Server = "127.0.0.1", Port = tonumber(modbus_port), Execute = true }
local process = PROCESS.new { Command = "sleep 100", Timeout = 0.1, Execute = true }
local command = SysProcessCreateWithResult.new { Command = "nice -n 5 sh -c 'nice; timeout 2 id -nG'" }
local background = SysProcessCreate.new { Command = "touch started; exec", Args = "sleep 1000" }
local timer = TON.new { IN = true, PT = 0.05 }
local sensor = plc.file("/sys/class/net/lo/mtu", 0.05)
local load = plc.file("/proc/loadavg", 0.05)
local received, received_then, sent_then, mailed_then = {}, nil, false, false

local function found()
  return {
    sms = sms.Done, inbox = received[1], sms_of_then = sent_then, inbox_of_then = received_then,
    mail = mail.Done or mail.ErrorText, mail_of_then = mailed_then, register = register.First, process = process.ErrorId,
    command = command.Output, timer = timer.Q, sensor = sensor.text, load = load.text ~= nil, execute = os.execute("true"),
  }
end

local written = false
function cycle()
  for _, block in ipairs { sms, mail, register, process, timer } do block() end
  inbox.Accept = false
  inbox()
  if inbox.Ready then received[#received + 1] = inbox.Text inbox.Accept = true inbox() end
  inbox_of_then()
  if inbox_of_then.Complete then received_then = inbox_of_then.Message end
  sms_of_then.Send = plc.cycle > 1
  sms_of_then()
  sent_then = sent_then or sms_of_then.Sent
  mail_of_then()
  mailed_then = mailed_then or mail_of_then.Sent and mail_of_then.Code
  command.Run = plc.cycle == 2
  command()
  background.Run = plc.cycle == 2
  background()
  if written or plc.cycle < 3 or process.Busy or mail.Busy or register.Busy or not (sms.Done and received[1] and received_then
    and sent_then and mailed_then and timer.Q and sensor.text and load.text) then return end
  written = true
  local file = io.open("found.new", "w")
  for name, value in pairs(found()) do file:write(("%s=%s\n"):format(name, (tostring(value):gsub("%s+$", ""):gsub("\n", "|")))) end
  file:close()
  os.rename("found.new", "found")
end
"""
FOUND = {"sms": "true", "inbox": "to the field block", "sms_of_then": "true", "inbox_of_then": "to the block of then",
         "mail": "true", "mail_of_then": "0", "register": "4711", "process": "41", "command": "5|corvane dialout",
         "timer": "true", "sensor": "65536", "load": "true", "execute": "true"}


class Registers(socketserver.BaseRequestHandler):
    """A Modbus server all of whose registers hold 4711."""

    def handle(self):
        while request := self.request.recv(260):
            self.request.sendall(request[:4] + b"\0\5" + request[6:8] + b"\2" + (4711).to_bytes(2, "big"))


def open_to_dialout(modem):
    """The simulated modem's terminal, as open as a serial device; a link in /tmp is not seen in a private /tmp."""
    terminal = os.path.realpath(modem.device)
    run("chgrp", "dialout", terminal)
    run("chmod", "660", terminal)
    return terminal


def make_certificate():
    run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
        "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", "/tmp/key", "-out",
        "/etc/corvane/ca.pem")
    run("sh", "-c", "cat /tmp/key /etc/corvane/ca.pem >/tmp/both")


def check_every_block():
    """Under all restrictions of the unit each add-in works, and the bench."""
    make_certificate()
    registers = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Registers)
    threading.Thread(target=registers.serve_forever, daemon=True).start()
    bench = free_port()
    with SimulatedModem("/usr/bin/corvane") as modem, SimulatedModem("/usr/bin/corvane") as modem_of_then, \
            Sink(PROJECT, "--certificate", "/tmp/both") as tls, Sink(PROJECT) as plain:
        ports = (tls.port, plain.port, registers.server_address[1])
        modem.do("receive +15550101234 to the field block")
        modem_of_then.do("receive +15550105678 to the block of then")
        write_program("blocks", BLOCKS, f"cycle = 20ms\nweb = {bench}\n" +
                      "".join(f"modem = {number}={open_to_dialout(device)}\n"
                              for number, device in ((1, modem), (2, modem_of_then))) +
                      "".join(f"args = {port}\n" for port in ports))
        run("systemctl", "start", "corvane@blocks")
        found = pathlib.Path(STATE, "blocks/found")
        await_that(found.exists, "blocks")
        result = dict(line.split("=", 1) for line in found.read_text(encoding="utf-8").splitlines())
        assert result == FOUND, (result, journal("blocks"))
        [mail] = tls.take()
        assert mail.attachments() and mail.text().strip() == "filtered"
        with urllib.request.urlopen(f"http://127.0.0.1:{bench}/healthz", timeout=PATIENCE) as answer:
            assert answer.status == 200
        as_member = ("setpriv", "--reuid=corvane", "--regid=corvane", "--init-groups")
        assert "SMS_OUTBOX" in run(*as_member, "corvane", "watch", "--once", "blocks")
    registers.shutdown()
    registers.server_close()


def check_watched():
    """A runtime that stands still, or is killed, is started again, and knows its values; commands go on."""
    command = int(run("pgrep", "--oldest", "--full", "^sleep 1000$"))
    change_unit("WatchdogSec=5s\nRestartSec=100ms\n")
    run("systemctl", "restart", "corvane@blocks")
    for number, stop in enumerate(("STOP", "KILL"), start=1):
        process = shown("blocks", "MainPID")
        run("kill", f"-{stop}", process)
        await_that(lambda: shown("blocks", "NRestarts") == str(number) and shown("blocks", "ActiveState") == "active",
                   "blocks")
        assert shown("blocks", "MainPID") not in ("0", process)
    assert "Watchdog timeout" in journal("blocks")
    run("systemctl", "stop", "corvane@blocks")
    assert shown("blocks", "Result") == "success", journal("blocks")
    with open(STATE + "/blocks/retain.json", encoding="utf-8") as file:
        assert re.search(r'"starts":\s*4\b', file.read())
    os.kill(command, 0)  # it has outlived the program four times
    change_unit("")


# ---- What it cannot do. Each line is a command and what its error must say.

REFUSED = """\
head -c 1 /dev/refused_disk|Operation not permitted
head -c 1 /dev/refused_memory|Operation not permitted
touch /etc/corvane/refused|Read-only file system
touch /var/lib/corvane/refused|Read-only file system
echo 1500 >/sys/class/net/lo/mtu|Read-only file system
ls /home|Permission denied
ls /proc/1|No such file or directory
mount -t tmpfs tmpfs /tmp|must be superuser
unshare --user true|Operation not permitted
chmod u+s own|Operation not permitted
chown corvane:dialout own|Operation not permitted
chrt --fifo 1 true|Operation not permitted
date --set 2030-01-01|Operation not permitted
python3 -c "import mmap; mmap.mmap(-1, 4096, prot=7)"|Operation not permitted
"""
ALLOWED = """\
head -c 0 /dev/ttyS9
ulimit -c 0
flock -n own true
python3 -c "import ssl, ctypes, threading"
grep -qP 'o(?=o)' /etc/corvane/foo
cp -p /etc/corvane/foo copy && sed -i s/o/a/ copy && tar cf x.tar copy && tar xpf x.tar && mv copy /tmp
df / && free && uptime && ps
"""
COMMANDS = r"""
local command = SysProcessCreateWithResult.new {}
for line in io.lines("/etc/corvane/commands") do
  command.Command, command.Args, command.Run = "{ " .. line .. "; } 2>&1;", "echo status $?", false
  command()
  command.Run = true
  command()
  print("-> " .. line .. "\n" .. command.Output)
end
function cycle() plc.stop() end
"""


def run_commands(commands):
    """What the commands print as commands of a service, each with its status."""
    pathlib.Path("/etc/corvane/commands").write_text("\n".join(commands) + "\n", encoding="utf-8")
    write_program("commands", COMMANDS)
    run("systemctl", "start", "corvane@commands")
    await_that(lambda: shown("commands", "ActiveState") == "inactive", "commands")
    os.remove("/etc/corvane/commands")
    output = journal("commands").split("Starting corvane@commands")[-1]
    found = dict(re.findall(r"^-> (.*)\n((?:(?!-> ).*\n)*)", output, re.MULTILINE))
    assert list(found) == commands, found
    return found


def check_restrictions():
    # A serial device without hardware; its driver, which all PCs have, decides, if it may.
    for name, kind, number, mode, group in (("ttyS9", "c", (4, 73), "660", "dialout"),
                                            ("refused_memory", "c", (1, 1), "666", "root"),
                                            ("refused_disk", "b", (7, 0), "666", "root")):
        run("mknod", "-m", mode, f"/dev/{name}", kind, *map(str, number))
        run("chgrp", group, f"/dev/{name}")
    pathlib.Path("/etc/corvane/foo").write_text("foo\n", encoding="utf-8")
    refused = [line.split("|") for line in REFUSED.splitlines()]
    allowed = ALLOWED.splitlines()
    said = run_commands(["touch own", *(command for command, _ in refused), *allowed])
    for command, wanted in refused:
        assert wanted in said[command] and "status 0" not in said[command], (command, said[command])
    for command in allowed:
        assert "status 0" in said[command] or command.endswith("ttyS9") and "not permitted" not in said[command], (
            command, said[command])
    owner = run("stat", "--format=%U:%G %a", STATE + "/commands").strip()
    assert owner == "corvane:corvane 750", owner
    for name in "foo", "ca.pem":
        os.remove("/etc/corvane/" + name)


def check_opened(unit_lines):
    """The page's lines open what they say."""
    assert len(unit_lines) >= 6, unit_lines
    os.mkdir("/srv/measurements", 0o777)
    os.chmod("/srv/measurements", 0o777)
    run("groupadd", "gpio")
    run("mknod", "-m", "666", "/dev/video0", "c", "1", "3")
    opened = ["touch /srv/measurements/here", "head -c 0 /dev/video0", "ls /proc/1", "id -nG | grep gpio",
              "python3 -c 'import mmap; mmap.mmap(-1, 4096, prot=7)'"]
    change_unit("\n".join(unit_lines) + "\n")
    said = run_commands(opened)
    assert all("status 0" in text for text in said.values()), said
    change_unit("")
    run("groupdel", "gpio")


def check_service(unit_lines):
    check_every_block()
    check_watched()
    check_restrictions()
    check_opened(unit_lines)
    remove_programs("blocks", "commands")


# ---- The upgrade from 0.1.0, whose one package had every add-in, and the removal.

SMS_PROGRAM = """
local kept = plc.retain("kept", { starts = 0 })
kept.starts = kept.starts + 1
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "from 0.1.0", Key = "once", ValidFor = 1e6 }
function cycle() sms.Execute = plc.cycle > 1 sms() end
"""
MAIL_PROGRAM = """
local mail = MAIL_OUTBOX.new {
  Server = "127.0.0.1", Port = 9, Security = "none", From = "pump@plant.example", To = "operator@plant.example",
  Subject = "from 0.1.0", Text = "kept", Key = "once",
}
function cycle() mail.Execute = plc.cycle > 1 mail() end
"""
PROGRAMS = ("pump", "report")


def waiting(name):
    """Who the messages that wait are for, and since when they wait."""
    messages = run("corvane", "messages", "--store", f"{STATE}/{name}/messages.db", "--json", "list").splitlines()
    read = [json.loads(message) for message in messages]
    return [(message["receiver"], message["created"]) for message in read if message["state"] == "waiting"]


def starts():
    with open(STATE + "/pump/retain.json", encoding="utf-8") as file:
        return int(re.search(r'"starts":\s*(\d+)', file.read())[1])


def is_running(name):
    return shown(name, "ActiveState") == "active"


def start_earlier_programs():
    write_program("pump", SMS_PROGRAM, "cycle = 20ms\nmodem = 1=/dev/ttyUSB9\n")
    write_program("report", MAIL_PROGRAM, "cycle = 20ms\n")
    run("systemctl", "enable", "--now", *(f"corvane@{name}" for name in PROGRAMS))
    await_that(lambda: all(os.path.exists(f"{STATE}/{name}/messages.db") and waiting(name) for name in PROGRAMS), *PROGRAMS)
    await_that(lambda: os.path.exists(STATE + "/pump/retain.json") and starts() == 1, "pump")
    return {name: shown(name, "MainPID") for name in PROGRAMS}


def check_upgrade(install_earlier, install_corvane, install_mail):
    """What runs restarts with the new version and the new unit, and has what it had."""
    install_earlier()
    processes = start_earlier_programs()
    had = {name: waiting(name) for name in PROGRAMS}
    assert all(len(messages) == 1 for messages in had.values()), had

    install_corvane()
    assert is_running("pump") and shown("pump", "MainPID") != processes["pump"]
    assert shown("pump", "DevicePolicy") == "closed"  # the new unit
    await_that(lambda: starts() == 2, "pump")
    assert waiting("pump") == had["pump"], journal("pump")
    folder = os.stat(STATE + "/pump")
    assert folder.st_mode & 0o777 == 0o750, oct(folder.st_mode)
    # MAIL_OUTBOX has moved to corvane-mail.
    await_that(lambda: "its add-in corvane_mail.so is not loaded: install corvane-mail" in journal("report"), "report")
    assert waiting("report") == had["report"]

    install_mail()
    # It is started again five seconds after its failure, or has been, or the administrator does it.
    run("systemctl", "reset-failed", "corvane@report")
    run("systemctl", "restart", "corvane@report")
    await_that(lambda: "127.0.0.1:9 cannot be reached" in journal("report"), "report")
    assert waiting("report") == had["report"], journal("report")
    await_that(lambda: starts() == 3, "pump")  # programs restart for an add-in, too: it may be a newer one
    return had


def check_removal(had, remove, install_again, purge):
    """A removal keeps what the programs have; a purge does not."""
    kept = {name: pathlib.Path(STATE, name, "messages.db") for name in PROGRAMS}
    remove()
    for name in PROGRAMS:
        assert shown(name, "ActiveState") != "active" and kept[name].exists()
    assert not pathlib.Path("/usr/bin/corvane").exists()
    install_again()
    assert {name: waiting(name) for name in PROGRAMS} == had
    run("systemctl", "start", "corvane@pump")
    await_that(lambda: starts() == 4, "pump")
    purge()
    assert not pathlib.Path(STATE).exists()
    for name in PROGRAMS:
        os.remove(f"/etc/corvane/{name}.lua")
        os.remove(f"/etc/corvane/{name}.conf")
