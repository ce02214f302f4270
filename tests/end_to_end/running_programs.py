#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""running_programs.py CORVANE [TEST...]: corvane list, watch and log-level with programs that run, stop answering,
end and come back, and with sockets of something else."""
import base64
import hashlib
import json
import os
import pty
import re
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
from bench_client import Program, WebSocket, wait_for
from terminal import Terminal

corvane = sys.argv[1]
scratch = tempfile.TemporaryDirectory()

PROGRAM = """
level = 5
tank = { open = true, label = "Насос \\27[31mred\\7", pin = "4711" }
alarm = SEND_SMS.new { Port = 1, Receiver = "+4912345" }
function cycle()
  level = level + 1
  alarm.Message = "cycle " .. plc.cycle
  if plc.cycle % 50 == 0 then plc.log("line " .. plc.cycle .. "\\27[2J") end
end
"""


class Folder:
    """A user's folder of sockets."""

    def __init__(self):
        self.path = tempfile.mkdtemp(dir=scratch.name)
        self.sockets = self.path + "/corvane"
        self.variables = {"XDG_RUNTIME_DIR": self.path, "PATH": os.environ["PATH"], "LANG": "C.UTF-8", "TZ": "UTC"}

    def start(self, name="pump", text=PROGRAM, **options):
        return Program(corvane, text, web=options.pop("web", ()), sockets=self.sockets, name=name, **options)

    def run(self, *words, timeout=60):
        result = subprocess.run([corvane, *words], capture_output=True, text=True, timeout=timeout, check=False,
                                env=self.variables, stdin=subprocess.DEVNULL)
        assert "Sanitizer" not in result.stderr, result.stderr
        return result.returncode, result.stdout, result.stderr

    def list(self):
        status, out, err = self.run("list", "--json")
        assert status == 0, err
        return [json.loads(line) for line in out.splitlines()]

    def watch(self, *words, **terminal):
        return Terminal([corvane, "watch", *words], self.variables, **terminal)


def leave(terminal, how=b"q"):
    terminal.press(how) if isinstance(how, bytes) else terminal.process.send_signal(how)
    assert terminal.wait_for_end() == 0
    assert b"Sanitizer" not in terminal.raw, terminal.raw


class FakeProgram:
    """Listens like a program, and answers with what `answer` sends on each connection."""

    def __init__(self, folder, name, answer):
        os.makedirs(folder.sockets, exist_ok=True)
        self.path = f"{folder.sockets}/{name}.sock"
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen()
        self.answer = answer
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            threading.Thread(target=self.talk, args=(connection,), daemon=True).start()

    def talk(self, connection):
        with connection:
            try:
                self.answer(connection)
            except OSError:
                pass  # the command has had enough

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()
        os.remove(self.path)


def shake(connection):
    """Accepts a WebSocket."""
    head = b""
    while b"\r\n\r\n" not in head:
        data = connection.recv(4096)
        if not data:
            raise OSError
        head += data
    key = re.search(rb"Sec-WebSocket-Key: (\S+)", head)
    if key is None:
        raise OSError
    accept = base64.b64encode(hashlib.sha1(key[1] + b"258EAFA5-E914-47DA-95CA-C5AB0DC85B11").digest())
    connection.sendall(b"HTTP/1.1 101 x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: "
                       + accept + b"\r\n\r\n")


def frame(octets, size=None):
    return b"\x81\x7f" + (size or len(octets)).to_bytes(8, "big") + octets


def garbage(connection):
    connection.sendall(b"\x00\xff\x1b[2J" * 100)
    connection.recv(1)


def silence(connection):
    while connection.recv(4096):
        pass


def endless_text(connection):
    shake(connection)
    connection.sendall(frame(b'{"type":"hello","name":"', size=100_000_000))
    for _ in range(1000):
        connection.sendall(b"x" * 100_000)


def deep_text(connection):
    shake(connection)
    connection.sendall(frame(b"[" * 1_000_000))
    connection.recv(1)


def wrong_members(connection):
    shake(connection)
    connection.sendall(frame(b'{"type":"hello","cycle":"\\u001b[2J","started":1e300,"page":7}'))
    connection.sendall(frame(b'{"type":"variables","add":[{"id":"x"}],"remove":7,"set":null}'))
    silence(connection)


def drops(connection):
    """A byte now and then, so that the connection is never quiet."""
    while True:
        connection.sendall(b"H")
        time.sleep(0.2)


def list_names_what_runs():
    folder = Folder()
    assert folder.run("list") == (0, "No program runs.\n", "")
    with folder.start(web=("--web", "0")) as pump, folder.start("press", cycle="250ms") as press:
        status, out, err = folder.run("list")
        assert (status, err) == (0, ""), err
        head, first, second = out.splitlines()
        assert head.split() == ["NAME", "PID", "USER", "SINCE", "CYCLE", "SOCKET", "PAGE", "STATE"], out
        assert first.split()[:2] == ["press", str(press.process.pid)] and " 250ms " in first, out
        assert second.split()[:2] == ["pump", str(pump.process.pid)], out
        assert second.split()[-3:] == [pump.socket, f"http://127.0.0.1:{pump.port}/", "ok"], out
        one, two = folder.list()
        assert (one["name"], one["page"], one["cycle"], one["healthy"]) == ("press", None, 0.25, True), one
        assert (two["pid"], two["socket"], two["state"]) == (pump.process.pid, pump.socket, "ok"), two
        assert abs(two["started"] - time.time()) < 60, two
        # A socket of a killed program is not a program.
        press.process.kill()
        press.process.wait()
        assert os.path.exists(press.socket)
        assert [program["name"] for program in folder.list()] == ["pump"]
    assert folder.list() == []


def list_says_what_is_wrong_with_a_program():
    folder = Folder()
    hanging = "function cycle() if plc.cycle == 5 then while true do end end end"
    with folder.start("stuck", hanging) as stuck, folder.start("stopped") as stopped, \
            FakeProgram(folder, "noise", garbage), FakeProgram(folder, "drops", drops), \
            FakeProgram(folder, "huge", endless_text), FakeProgram(folder, "odd", wrong_members):
        stopped.process.send_signal(signal.SIGSTOP)
        wait_for(lambda: any("no cycle has ended for" in row["state"] for row in folder.list()), "the stuck one", 60)
        begin = time.monotonic()
        rows = {row["name"]: row for row in folder.list()}
        assert time.monotonic() - begin < 25, "one after the other"  # each may take two times five seconds
        assert not rows["stuck"]["healthy"] and rows["stuck"]["cycle"] == 0.01, rows
        assert rows["stopped"]["state"] == "it does not answer", rows
        assert rows["stopped"]["pid"] == stopped.process.pid and rows["stopped"]["cycle"] is None, rows
        assert rows["noise"]["state"] == rows["huge"]["state"] == "it sends what cannot be understood", rows
        assert rows["drops"]["state"] in ("it sends what cannot be understood", "it does not answer"), rows
        assert rows["odd"]["started"] is None and rows["odd"]["page"] is None, rows
        status, out, _ = folder.run("list")
        assert status == 0 and "\x1b" not in out, out
        stopped.process.send_signal(signal.SIGCONT)
        for program in (stuck, stopped):
            program.process.kill()
            program.process.wait()


def one_of_two_programs_of_a_name_is_chosen_by_its_process():
    folder = Folder()
    with folder.start() as first:
        second = Program(corvane, PROGRAM, web=(), sockets=folder.sockets, name="pump")
        with second:
            wait_for(lambda: len(folder.list()) == 2, "the second program")
            both = sorted(f"pump-{program.process.pid}" for program in (first, second))
            assert {program["name"] for program in folder.list()} == {"pump"}
            for words in (("log-level", "pump", "debug"), ("watch", "--once", "pump")):
                status, out, err = folder.run(*words)
                assert (status, out) == (2, ""), (out, err)
                assert err.startswith("corvane: 2 programs 'pump' run; these run: pump-"), err
                assert all(name in err for name in both), err
            assert folder.run("watch", "--once")[0] == 2
            for program in (first, second):
                status, out, err = folder.run("log-level", f"pump-{program.process.pid}", "debug")
                assert (status, out, err) == (0, "pump logs from debug on\n", ""), (out, err)
                wait_for(lambda: "sets the log level to debug" in program.log(), "the change")
            socket_path = f"{folder.sockets}/pump-{second.process.pid}.sock"
            assert folder.run("log-level", socket_path, "info")[0] == 0
            wait_for(lambda: "sets the log level to info" in second.log(), "the change by path")
            assert "sets the log level to info" not in first.log()


def log_level_is_changed_and_logged_with_who():
    folder = Folder()
    with folder.start() as pump:
        for level in ("error", "off", "info"):
            assert folder.run("log-level", "pump", level) == (0, f"pump logs from {level} on\n", "")
            with WebSocket(pump.socket) as client:
                assert client.receive()["level"] == level
        who = f"user {os.getuid()}, process "
        wait_for(lambda: len(re.findall(f"bench: {who}[0-9]+ sets the log level to (?:error|off|info)", pump.log())) == 3,
                 "three lines")
        status, out, err = folder.run("log-level", "pump", "loud")
        assert (status, out) == (2, ""), out
        assert err == ("corvane: LEVEL: 'loud' is not one of trace, debug, info, warning, error, off "
                       "(try corvane log-level --help)\n"), err
        status, out, err = folder.run("log-level", "pmup", "info")
        assert (status, err) == (2, "corvane: no program 'pmup' runs; these run: pump\n"), err
        pump.process.send_signal(signal.SIGSTOP)
        begin = time.monotonic()
        status, out, err = folder.run("log-level", "pump", "debug")
        assert (status, err) == (1, f"corvane: {pump.socket}: it does not answer\n"), err
        assert 4 < time.monotonic() - begin < 20
        pump.process.send_signal(signal.SIGCONT)
    status, out, err = folder.run("log-level", "pump", "info")
    assert (status, err) == (2, "corvane: no program 'pump' runs; no program runs\n"), err
    assert folder.run("log-level", "/no/such.sock", "info")[0] == 2
    with FakeProgram(folder, "deep", deep_text):
        status, out, err = folder.run("log-level", "deep", "info")
        assert status == 1 and err.endswith("it sends what cannot be understood\n"), err


def once_prints_a_picture():
    folder = Folder()
    with folder.start():
        status, out, err = folder.run("watch", "--once")
        assert (status, err) == (0, ""), err
        assert re.search(r"^\d+ cycles, \d+ overruns\ncycle time now \S+ p99 \S+ max ", out), out
        assert "\npump: variables\n" in out and "\nalarm: SEND_SMS\n" in out and "\ntank: table\n" in out, out
        assert re.search(r"  Receiver     '\+4912345'", out) and "open         TRUE" in out, out
        assert "'Насос red?'" in out and "4711" not in out and "pin          ......" in out, out
        assert "\x1b" not in out, out
    many = "for i = 1, 9900 do _G['v' .. i] = i end function cycle() v1 = v1 + 1 end"
    with folder.start("many", many):
        status, out, err = folder.run("watch", "--once", "many")
        assert status == 0 and "  v9900        9900" in out, (out[-300:], err)
    with folder.start("empty", "function cycle() end"):
        status, out, _ = folder.run("watch", "--once", "empty")
        assert status == 0 and re.match(r"\d+ cycles, ", out), out


def watch_needs_a_terminal():
    folder = Folder()
    with folder.start():
        status, out, err = folder.run("watch", "pump")
        assert (status, out) == (2, ""), out
        assert err == "corvane: corvane watch needs a terminal as standard output; --once prints one picture\n", err
        master, slave = pty.openpty()
        result = subprocess.run([corvane, "watch", "pump"], stdout=slave, stderr=subprocess.PIPE, text=True,
                                env={**folder.variables, "TERM": "dumb"}, check=False)
        assert (result.returncode, "terminal of the type 'dumb'" in result.stderr) == (2, True), result
        os.close(master)
        os.close(slave)
        terminal = folder.watch("pmup")
        status = terminal.process.wait(30)
        terminal.take(0.2)
        assert status == 2 and "no program 'pmup' runs; these run: pump" in terminal.text(), terminal.text()


def watch_shows_the_program_and_obeys_its_keys():
    folder = Folder()
    with folder.start() as pump:
        terminal = folder.watch(lines=30)
        terminal.wait_for(" corvane  pump", " cycles, ", "pump: variables", "alarm: SEND_SMS", "tank: table",
                          "* level", "'cycle ", "'Насос red?'", "pin          ......", " Log", "line ", " q: leave  ?: keys")
        assert b"4711" not in terminal.raw
        terminal.press(b"/LEVEL\r")
        terminal.wait_for("pump: variables", "/LEVEL", gone=["alarm:", "tank:"])
        terminal.press(b"\x1b")
        terminal.wait_for("alarm: SEND_SMS")
        terminal.press(b"p")
        terminal.wait_for(" corvane  paused  pump")
        terminal.press(b"p?")
        terminal.wait_for("q, Ctrl-C   leave; the program runs on", gone=["paused"])
        terminal.press(b"?")
        for lines, columns in ((5, 20), (60, 200), (24, 80), (3, 80)):
            terminal.resize(lines, columns)
            terminal.wait_for(" corvane ", " q: leave")
        leave(terminal)
        for ending in (b"\x03", signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            terminal = folder.watch("pump")
            terminal.wait_for("alarm: SEND_SMS")
            leave(terminal, ending)
        assert not pump.ended()


def watch_goes_on_after_a_stop_and_a_restart():
    folder = Folder()
    terminal = None
    with folder.start() as pump:
        terminal = folder.watch("pump")
        terminal.wait_for("alarm: SEND_SMS", gone=["connecting"])
        pump.process.send_signal(signal.SIGSTOP)
        terminal.wait_for(" corvane  it does not answer; waiting for it:  pump")
        terminal.press(b"?")  # the keys still work
        terminal.wait_for("PgUp, PgDn")
        terminal.press(b"?")
        pump.process.send_signal(signal.SIGCONT)
        terminal.wait_for("alarm: SEND_SMS", "* level", gone=["waiting for it"])
    terminal.wait_for(" corvane  it has ended", "alarm: SEND_SMS")  # the last picture stays
    with folder.start(text=PROGRAM.replace("level = 5", "level = 987000000")) as again:
        terminal.wait_for("level        987", gone=["waiting for it"])
        again.process.kill()
        again.process.wait()
        terminal.wait_for("it has ended")
    leave(terminal)


def watch_survives_what_is_not_a_program():
    for answer in (garbage, silence, endless_text, deep_text, wrong_members):
        folder = Folder()
        with FakeProgram(folder, "fake", answer):
            terminal = folder.watch("fake")
            words = "it does not answer" if answer is silence else "it sends what cannot be understood"
            terminal.wait_for(f" corvane  {words}; waiting for it:  fake")
            leave(terminal)


def watch_moves_through_many_variables():
    folder = Folder()
    many = "for i = 1, 9900 do _G[string.format('v%04d', i)] = i end function cycle() v0001 = v0001 + 1 end"
    with folder.start("many", many):
        terminal = folder.watch()
        terminal.wait_for("many: variables", "  lines 1 to ", " of 4951")
        terminal.press(b"/v9900\r")
        terminal.wait_for("  v9900        9900", "/v9900")
        leave(terminal)


def each_user_finds_what_is_theirs():
    """In a folder that stands for /run: services, other users, and what may not be seen. Needs root."""
    if os.geteuid() != 0:
        print("Skipped: only root can become other users")
        return
    inner = [sys.executable, __file__, corvane, "--within-own-run"]
    result = subprocess.run(["unshare", "--mount", "--propagation", "private", *inner], capture_output=True, text=True,
                            timeout=100, check=False)
    if "Operation not permitted" in result.stderr:
        print("Skipped: this machine gives no mount namespace")
        return
    assert result.returncode == 0, result.stdout + result.stderr


def within_own_run():
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/run"], check=True)
    daemon, nobody = 1, 65534
    places = {"service": ("/run/corvane/service", daemon), "own": (f"/run/user/{nobody}/corvane", nobody)}
    programs = []
    environment = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8"}
    os.chmod(scratch.name, 0o755)
    for name, (folder, user) in places.items():
        os.makedirs(os.path.dirname(folder), exist_ok=True)
        os.makedirs(folder, mode=0o750)
        os.chmod(folder, 0o750)
        os.chown(folder, user, user)
        path = f"{scratch.name}/{name}.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write("function cycle() end")
        programs.append(subprocess.Popen(
            ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "--pdeathsig", "KILL", corvane, "run", path],
            env={**environment, "RUNTIME_DIRECTORY": folder, "HOME": "/nonexistent"}, stderr=subprocess.DEVNULL))
        wait_for(lambda: os.path.exists(f"{folder}/{name}.sock"), name)
        assert stat.S_IMODE(os.stat(f"{folder}/{name}.sock").st_mode) == 0o660

    def listed(user, *groups):
        become = [f"--reuid={user}", f"--regid={user}", f"--groups={','.join(map(str, groups))}" if groups else "--clear-groups"]
        result = subprocess.run(["setpriv", *become, corvane, "list"], env=environment, capture_output=True, text=True, check=False)
        assert result.returncode == 0, result.stderr
        return [tuple(line.split()[:3:2]) for line in result.stdout.splitlines()[1:]], result.stderr

    assert listed(0) == ([("own", "nobody"), ("service", "daemon")], "")
    assert listed(daemon) == ([("service", "daemon")], "")
    assert listed(nobody) == ([("own", "nobody")],
                              "corvane: /run/corvane/service: Permission denied; members of the group daemon may\n")
    assert listed(nobody, daemon) == ([("own", "nobody"), ("service", "daemon")], "")
    # A link in a user's folder does not lead root to a program of somebody else.
    os.symlink("/run/corvane/service/service.sock", f"/run/user/{nobody}/corvane/link.sock")
    os.makedirs("/run/user/7")
    os.symlink("/run/corvane/service", "/run/user/7/corvane")
    assert listed(0) == ([("own", "nobody"), ("service", "daemon")], "")
    for program in programs:
        program.terminate()
        assert program.wait(30) == 0


TESTS = [list_names_what_runs, list_says_what_is_wrong_with_a_program,
         one_of_two_programs_of_a_name_is_chosen_by_its_process, log_level_is_changed_and_logged_with_who,
         once_prints_a_picture, watch_needs_a_terminal, watch_shows_the_program_and_obeys_its_keys,
         watch_goes_on_after_a_stop_and_a_restart, watch_survives_what_is_not_a_program,
         watch_moves_through_many_variables, each_user_finds_what_is_theirs]
chosen = sys.argv[2:]
if chosen == ["--within-own-run"]:
    within_own_run()
    sys.exit(0)
for test in TESTS:
    if not chosen or test.__name__ in chosen:
        test()
        print(test.__name__.replace("_", " "), flush=True)
scratch.cleanup()
