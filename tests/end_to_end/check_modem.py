#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""check_modem.py CORVANE: `corvane check-modem` says what is wrong with a modem, and what to do."""
import concurrent.futures
import json
import os
import pty
import re
import select
import socket
import subprocess
import sys
import tempfile
import termios
import threading
import tty

sys.dont_write_bytecode = True
from simulated_modem import PATIENCE, SimulatedModem

corvane, = sys.argv[1:]
ANSWERS = {
    "AT+CPIN?": "+CPIN: READY", "AT+CREG?": "+CREG: 0,1", "AT+CSQ": "+CSQ: 20,0", "AT+CMEE?": "+CMEE: 0",
    "AT+COPS?": '+COPS: 0,0,"Network",7', "AT+CSCA?": '+CSCA: "+15550000000",145', "AT+CSCS?": '+CSCS: "GSM"',
    "AT+CPMS?": '+CPMS: "SM",1,20,"SM",1,20,"SM",1,20', "AT+CSMS?": "+CSMS: 0,1,1,1"}


def check(device, *options, home=None):
    """The status, and the lines of the report by topic."""
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, "HOME": home or folder}
        for name in ("STATE_DIRECTORY", "XDG_STATE_HOME"):
            environment.pop(name, None)
        result = subprocess.run([corvane, "check-modem", device, *options], capture_output=True, text=True,
                                timeout=PATIENCE, stdin=subprocess.DEVNULL, env=environment)
    assert result.stderr == "", result
    *lines, last = result.stdout.splitlines()
    report = {line[9:25].rstrip(): line[:9].rstrip() + ": " + line[25:] for line in lines}
    assert result.returncode == (0 if last == "Messages can be sent." else 1), result
    assert (result.returncode == 1) == any(text.startswith("error: ") for text in report.values()), result
    return result.returncode, report


def expect(report, topic, pattern):
    assert re.search(pattern, report.get(topic, "")), f"{topic}: no {pattern!r} in {report}"


class Peer:
    """The other end of a pseudo-terminal. `script(command, speed)` gives the octets to answer, or None to vanish."""

    def __init__(self, script):
        self.script, self.commands = script, []
        self.master, slave = pty.openpty()
        tty.setraw(slave)
        self.device, self.slave = os.ttyname(slave), slave
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def run(self):
        line = b""
        while data := os.read(self.master, 1):
            if data != b"\r":
                line += data
                continue
            command, line = line.strip(b"\x1b").decode("latin-1"), b""
            if not command:
                continue
            self.commands.append(command)
            answer = self.script(command, termios.tcgetattr(self.master)[4])
            if answer is None:
                os.close(self.slave)
                os.close(self.master)
                return
            os.write(self.master, answer)


def good(command, _speed=None):
    line = ANSWERS.get(command)
    if command.startswith(("ATE", "ATV", "AT+CMEE=", "AT+CMGF=")) or command == "AT":
        return b"\r\nOK\r\n"
    return f"\r\n{line}\r\n\r\nOK\r\n".encode() if line else b"\r\nERROR\r\n"


def a_good_modem():
    with SimulatedModem(corvane) as modem:
        status, report = check(modem.device, "--send", "+1 555 010-1234")
        assert status == 0, report
        modem.await_output("sent to +15550101234: Test message from corvane check-modem\n")
        expect(report, "line", "^ok: .* answers at 115200 bits per second$")
        expect(report, "modem", "^ok: Corvane, Simulator")
        expect(report, "SIM card", "^ok: ready")
        expect(report, "network", "^ok: registered at home")
        expect(report, "operator", "^ok: Corvane")
        expect(report, "signal", "^ok: -73 dBm$")
        expect(report, "service centre", r"^ok: \+15550000000$")
        expect(report, "store", "^ok: SM: 0 of 20 places taken$")
        expect(report, "alphabet", "^ok: GSM")
        expect(report, "echo", "^ok: can be switched off")
        expect(report, "flow control", "^ok: none on our side; the modem's setting is RTS/CTS")
        expect(report, "test message", "^ok: sent to .15550101234; the network confirmed it after")

        modem.do("signal 5")
        modem.do("fill")
        modem.await_output("fill the store")
        status, report = check(modem.device)
        assert status == 0, report
        expect(report, "signal", "^warning: -103 dBm, weak; .*antenna")
        expect(report, "store", "^warning: SM: 20 of 20 places taken, so no message arrives; let .*AT.CMGD=1,4")

        modem.do("network off")
        status, report = check(modem.device, "--send", "+15550101234")
        assert status == 1, report
        expect(report, "network", "^error: not registered, and not searching; check the antenna")
        assert "test message" not in report, report

        modem.do("sim out")
        status, report = check(modem.device)
        expect(report, "SIM card", r"^error: there is none.*\+CME ERROR: 10.*; insert it")
        assert "network" not in report and "signal" in report, report
    assert check(modem.device)[0] == 1  # it is gone


def every_quirk(name):
    with SimulatedModem(corvane, "--quirk", name) as modem:
        status, report = check(modem.device, "--send", "15550101234")
        if name == "no-prompt":
            expect(report, "test message", "^error: the modem shows no prompt")
            return
        assert status == 0, (name, report)
        expect(report, "echo", {"echo-always": "keeps it on", "no-echo": "off$"}.get(name, "switched off"))
        if name == "ok-on-failure":
            modem.do("fail 38 CMGS")
            status, report = check(modem.device, "--send", "15550101234")
            expect(report, "test message", "^error: .*OK without a number.*AT.SM20=0,0")


def a_refused_message():
    with SimulatedModem(corvane) as modem:
        modem.do("fail 38 CMGS")
        status, report = check(modem.device, "--send", "15550101234")
        expect(report, "test message", r"^error: refused: \+CMS ERROR: 38 \(network out of order\); .*Error numbers")


def a_slow_line():
    with SimulatedModem(corvane, "--baud", "9600") as modem:
        status, report = check(modem.device + ",baud=9600")
        assert status == 0, report
        expect(report, "line", "answers at 9600 bits per second$")


def pins():
    with tempfile.TemporaryDirectory() as home, SimulatedModem(corvane, "--pin", "1234") as modem:
        status, report = check(modem.device, home=home)
        assert status == 1, report
        expect(report, "SIM card", "^error: it asks for its PIN; write init=")
        expect(report, "PIN tries", "^warning: .*third wrong one locks")
        for _ in range(4):  # a wrong PIN is sent once only
            status, report = check(modem.device + ',init="AT+CPIN=9999"', home=home)
            assert status == 1, report
            expect(report, "init", "^warning: AT.CPIN=.secret. (was answered|is not sent)")
            assert "9999" not in str(report), report
        expect(report, "SIM card", "^error: it asks for its PIN")
        modem.do("answer +CPINR +CPINR: SIM PIN,1,3\\r\\nOK\\r\\n")
        status, report = check(modem.device + ",init=AT+CPIN=4321", home=home)
        expect(report, "PIN tries", "^warning: 1 left; another wrong PIN locks the card")
        expect(report, "SIM card", "^error: .*the PIN was not sent, since only one try is left")
        assert modem.output.count("wrong PIN") <= 1, modem.output
        status, report = check(modem.device + ",init=AT+CPIN=1234;AT+CNMI=2,0", home=home)
        assert status == 0, report
        expect(report, "SIM card", "^ok: ready; its PIN was accepted")
        expect(report, "init", "^ok: all 2 commands were accepted")


def a_locked_card():
    peer = Peer(lambda command, _: b"\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n" if command == "AT+CPIN?" else good(command))
    status, report = check(peer.device)
    assert status == 1, report
    expect(report, "SIM card", "^error: it is locked.*; unlock it in a telephone, with the PUK")
    assert not [c for c in peer.commands if c.startswith("AT+CPIN=")], peer.commands


def a_silent_line():
    with SimulatedModem(corvane) as modem:
        modem.do("mute 10min")
        modem.do("help")
        modem.await_output("quit")
        status, report = check(modem.device)
        assert status == 1, report
        expect(report, "line", "^error: .* does not answer, at no usual baud rate; check its power")


def a_wrong_baud_rate():
    peer = Peer(lambda command, speed: good(command) if speed == termios.B19200 else b"\xf8\x80\x00\xfe")
    status, report = check(peer.device)
    assert status == 1, report
    expect(report, "line", f"^error: .* at 19200 bits per second, not at 115200; write baud=19200 .*1={peer.device},baud=19200")
    expect(report, "network", "^ok: registered")
    status, report = check(peer.device + ",baud=19200")
    assert status == 0, report


def a_login_prompt():
    _, report = check(Peer(lambda command, _: b"\r\nbox login: \x1b[2J").device)
    expect(report, "line", r"^error: .* answers, but not as a modem does: 'box login: .*x1B.*baud=")


def what_is_not_a_modem():
    _, report = check(Peer(lambda command, _: command.encode() + b"\r").device)
    expect(report, "line", "^error: .* sends back what it gets, and nothing else; it is not")
    _, report = check("/dev/null")
    expect(report, "line", "^error: /dev/null is not a serial device")


def trouble_in_the_middle():
    def vanishing(command, _):
        return None if command == "AT+CSQ" else good(command)
    status, report = check(Peer(vanishing).device)
    assert status == 1, report
    expect(report, "line", "^error: .* was lost .*; was the modem unplugged")
    expect(report, "network", "^ok")

    status, report = check(Peer(lambda c, _: b"\r\nRDY\r\n" if c == "AT+CREG?" else good(c)).device)
    expect(report, "line", r"^error: the modem has restarted \(it sent RDY\); check its power supply")


def results_switched_off():
    with SimulatedModem(corvane) as modem:
        line = os.open(modem.device, os.O_RDWR | os.O_NOCTTY)
        os.write(line, b"ATQ1\r")
        os.close(line)
        status, report = check(modem.device)
        assert status == 1, report
        expect(report, "line", "^error: .* only since its results were switched on; .*ATQ0&W")


def over_tcp():
    with SimulatedModem(corvane, "--tcp", "127.0.0.1:0") as modem:
        port = re.search(r"tcp=127.0.0.1:(\d+)", modem.output)[1]
        status, report = check("tcp:127.0.0.1:" + port)
        assert status == 0, report
        expect(report, "line", f"^ok: tcp:127.0.0.1:{port} answers$")
    _, report = check("tcp:127.0.0.1:" + port)
    expect(report, "line", "^error: .*refused; is the serial device server running")

    with socket.create_server(("127.0.0.1", 0)) as server:
        port = server.getsockname()[1]
        threading.Thread(target=lambda: server.accept()[0].close(), daemon=True).start()
        _, report = check(f"tcp:127.0.0.1:{port}")
        expect(report, "line", "^error: .* was lost .*another program connected")


def a_line_that_is_never_quiet():
    def flood(server):
        try:
            with server.accept()[0] as connection:
                while True:
                    connection.sendall(b"\xffnoise \x1b[31m" * 500)
        except OSError:
            pass  # the check has left

    with socket.create_server(("127.0.0.1", 0)) as server:
        threading.Thread(target=flood, args=[server], daemon=True).start()
        _, report = check(f"tcp:127.0.0.1:{server.getsockname()[1]}")
        expect(report, "line", r"^error: .* answers, but not as a modem does: '.*noise .x1B.*; set the serial device server")


def a_port_in_use():
    program = """
local sms = SEND_SMS.new { Port = 1, Receiver = "15550101234", Message = "from the program" }
function cycle()
  sms.Send = io.open(plc.args[1]) ~= nil
  sms()
  if sms.Sent then plc.stop() end
end
"""
    with tempfile.TemporaryDirectory() as folder, SimulatedModem(corvane) as modem:
        with open(folder + "/alarm.lua", "w", encoding="utf-8") as file:
            file.write(program)
        with subprocess.Popen([corvane, "run", folder + "/alarm.lua", "--modem", "1=" + modem.device, "--cycle", "10ms",
                               "--", folder + "/send"], stderr=subprocess.PIPE, text=True,
                              env={**os.environ, "HOME": folder}) as running:
            log = running.stderr.readline()
            assert "is open" in log, log
            status, report = check(modem.device)
            assert status == 1, report
            expect(report, "line", "^error: .* is in use by another program .fuser -v ")
            with open(folder + "/send", "w", encoding="utf-8"):
                pass
            modem.await_output("sent to +15550101234: from the program\n")
            log = running.communicate(timeout=PATIENCE)[1]
            assert running.returncode == 0 and "modem port" not in log, log  # its dialogue was not disturbed


def output_for_programs():
    with SimulatedModem(corvane) as modem:
        result = subprocess.run([corvane, "check-modem", modem.device, "--json"], capture_output=True, text=True,
                                timeout=PATIENCE)
        report = json.loads(result.stdout)
        assert result.returncode == 0 and report["can_send"] and report["device"] == modem.device, result
        values = {f["topic"]: f.get("values") for f in report["findings"]}
        assert values["signal"] == {"dbm": -73} and values["store"] == {"store": "SM", "used": 0, "places": 20}, values
        assert {f["status"] for f in report["findings"]} == {"ok"}, report


def console_from_a_pipe():
    given = 'AT+CPIN?\nAT+CPIN=1234\nAT+CMGF=1\nAT+CMGS="+15550101234"\nHello\nAT+FOO\nAT+CMGS="1"\n\nATI'
    with SimulatedModem(corvane, "--pin", "1234", "--quirk", "echo-always") as modem:
        result = subprocess.run([corvane, "check-modem", modem.device, "--console"], capture_output=True, text=True,
                                timeout=PATIENCE, input=given)
        assert result.returncode == 0 and result.stderr == "", result
        assert result.stdout.split("kept.\n")[1] == (
            "at> AT+CPIN?\n+CPIN: SIM PIN\nOK\nat> AT+CPIN=****\nOK\nat> AT+CMGF=1\nOK\n"
            'at> AT+CMGS="+15550101234"\ntext> Hello\n+CMGS: 1\nOK\nat> AT+FOO\nERROR\n'
            'at> AT+CMGS="1"\ntext> \nOK\nat> ATI\nCorvane Simulator\nOK\n'), result.stdout
        modem.await_output("sent to +15550101234: Hello\n")
    peer = Peer(lambda command, _: None if command == "ATI" else good(command))
    result = subprocess.run([corvane, "check-modem", peer.device, "--console"], capture_output=True, text=True,
                            timeout=PATIENCE, input="AT\nATI\nAT\n")
    assert result.returncode == 1, result
    assert re.search(r"at> ATI\nerror +line +\S+ was lost: ", result.stdout), result


def console_on_a_terminal():
    with SimulatedModem(corvane, "--pin", "1234") as modem:
        master, slave = pty.openpty()
        before = termios.tcgetattr(slave)
        process = subprocess.Popen([corvane, "check-modem", modem.device, "--console"], stdin=slave, stdout=slave,
                                   env={**os.environ, "TERM": "xterm"})
        shown, seen = "", 0

        def await_shown(wanted):
            """Waits until this is shown after what was awaited before."""
            nonlocal shown, seen
            while wanted not in shown[seen:]:
                assert select.select([master], [], [], PATIENCE)[0], f"no {wanted!r} in {shown[seen:]!r}"
                shown += os.read(master, 4096).decode()
            seen = shown.index(wanted, seen) + len(wanted)

        await_shown("at> ")
        os.write(master, b"AT+CPIN=1234\r")
        await_shown("OK\r\n\rat> ")
        os.write(master, b"AT+CSQ\r")
        await_shown("+CSQ: 20,0\r\n")
        await_shown("OK\r\n\rat> ")
        os.write(master, b"\x1b[A\x1b[A")
        await_shown("\rat> AT+CPIN=\x1b")  # the PIN is not recalled
        modem.do("unsolicited RING")
        await_shown("RING\r\n\rat> AT+CPIN=\x1b")  # what is typed stays
        os.write(master, b"\x7f" * 8 + b"\x04")
        assert process.wait(PATIENCE) == 0
        assert "1234" not in shown, shown
        assert termios.tcgetattr(slave) == before, "the terminal is not as it was"
        os.close(master)
        os.close(slave)


def wrong_usage():
    for words, message in ((["/dev/x,speed=1"], "'speed' is not a setting"), ([], "DEVICE is missing"),
                           (["/dev/x", "--send", "abc"], "'abc' is not a telephone number"),
                           (["/dev/x", "--console", "--json"], "excludes")):
        result = subprocess.run([corvane, "check-modem", *words], capture_output=True, text=True, timeout=PATIENCE)
        assert result.returncode == 2 and message in result.stderr, result


quirks = re.findall(r"^  ([a-z-]+) ", subprocess.run(
    [corvane, "modem", "--help"], capture_output=True, text=True, check=True).stdout.split("Quirks:")[1], re.MULTILINE)
assert len(quirks) > 10, quirks
with concurrent.futures.ThreadPoolExecutor(max_workers=32) as pool:
    # The longest come first.
    tests = [pool.submit(test) for test in (a_silent_line, a_login_prompt, a_wrong_baud_rate, pins)]
    tests += [pool.submit(every_quirk, name) for name in sorted(quirks, key=lambda name: name != "no-prompt")]
    tests += [pool.submit(test) for test in (
        what_is_not_a_modem, a_good_modem, a_refused_message, a_slow_line, a_locked_card, trouble_in_the_middle,
        results_switched_off, over_tcp, a_line_that_is_never_quiet,
        a_port_in_use, output_for_programs, wrong_usage, console_from_a_pipe,
        console_on_a_terminal)]
    for test in tests:
        test.result()
