#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""sms_inbox.py CORVANE ADDIN: SMS_INBOX with a simulated modem, on good and on bad days.

Programs are killed at random moments; modems restart, are silent, cannot delete, list in strange ways;
disks are full, stores locked and damaged. No message may be lost, and none may be accepted twice.
"""
import concurrent.futures
import os
import queue
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
from bench_client import wait_for
from patience import TIME_FACTOR
from simulated_modem import SimulatedModem, await_empty_store, store_of
from tiny_disk import TinyDisk, can_mount

corvane, addin = sys.argv[1:3]
only = sys.argv[3:]
LIMIT = 90 * TIME_FACTOR  # seconds; only a failing test waits this long
SENDER = "+4915112345678"

# Prints each message that is offered, accepts it if told to, and prints when it has left the store.
PROGRAM = """
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local accepts, hold = plc.args[1] == "accept", tonumber(plc.args[2] or 0)
local offered, since, taken, error = nil, 0, nil, nil
function cycle()
  inbox.Accept = accepts and offered ~= nil and plc.cycle - since > hold
  if inbox.Accept then
    taken, offered = offered, nil
    print("took " .. taken)
  end
  inbox()
  if inbox.Accept and inbox.Ready then print("WRONG: Ready in the call of Accept") end
  if taken and (inbox.Ready or inbox.Waiting == 0) then
    print("done " .. taken)
    taken = nil
  end
  if inbox.Ready and not offered and not inbox.Accept then
    offered, since = inbox.Text:gsub("%c", "?"), plc.cycle
    print(("offer %d|%s|%s|%d|%d"):format(inbox.Id, inbox.From, offered, inbox.Kind, inbox.Time))
  end
  local state = ("state %s %s %d %s"):format(inbox.Valid, inbox.Error, inbox.ErrorId, inbox.ErrorText)
  if state ~= error then
    error = state
    print(state)
  end
  io.stdout:flush()
end
"""


class Program:
    """A control program whose output a test waits for, line by line."""

    def __init__(self, place, modem, *words, text=PROGRAM, state=None, wrap=()):
        path = place + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        environment = dict(os.environ, STATE_DIRECTORY=state or place + "/state")
        device = modem.device if isinstance(modem, SimulatedModem) else modem
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", *wrap, corvane, "run", path, "--cycle", "5ms", "--addin", addin,
             *(["--modem", "1=" + device] if device else []), "--", *words],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        self.lines, self.seen, self.log = queue.Queue(), [], []
        for stream, take in ((self.process.stdout, self.lines.put), (self.process.stderr, self.log.append)):
            threading.Thread(target=self._read, args=(stream, take), daemon=True).start()

    @staticmethod
    def _read(stream, take):
        for line in stream:
            take(line.rstrip("\n"))
        take(None)

    def wait_for(self, pattern, limit=LIMIT):
        end = time.monotonic() + limit
        while True:
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                line = None
            assert line is not None, f"no line {pattern!r} in {self.seen}, log {self.log}"
            self.seen.append(line)
            assert not line.startswith("WRONG"), self.seen
            if re.search(pattern, line):
                return line

    def kill(self):
        """As a power cut would. Returns all lines of the output."""
        self.process.kill()
        return self._rest(-signal.SIGKILL)

    def end(self):
        self.process.terminate()
        return self._rest(0)

    def _rest(self, expected):
        status = self.process.wait(LIMIT)
        assert status == expected, (status, self.seen, self.log)
        while (line := self.lines.get(timeout=LIMIT)) is not None:
            self.seen.append(line)
        assert not any(line.startswith("WRONG") for line in self.seen), self.seen
        return self.seen

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()


def texts(lines, word="offer"):
    if word == "offer":
        return [line.split("|")[2] for line in lines if line.startswith("offer ")]
    return [line[len(word) + 1:] for line in lines if line.startswith(word + " ")]


def part(reference, total, sequence, text, wide=False):
    """A part of a message in UCS-2, as the network hands it to a modem."""
    head = f"060804{reference:04X}" if wide else f"050003{reference:02X}"
    data = head + f"{total:02X}{sequence:02X}" + text.encode("utf-16-be").hex().upper()
    return "0044" + "0D91945111325476F8" + "0008" + "62112221000000" + f"{len(data) // 2:02X}" + data


def a_message_is_offered_again_until_it_is_accepted(place):
    with SimulatedModem(corvane, "--time", "2026-11-22T12:00:00+01:00") as modem:
        modem.do(f"receive {SENDER} Grüße: 5 € 🌊")
        modem.do("receive Waterworks second")
        expected = f"offer 1|{SENDER}|Grüße: 5 € 🌊|0|1795345200"
        for _ in range(2):
            with Program(place, modem, "hold") as program:
                assert program.wait_for("^offer") == expected, program.seen
                program.kill()
        with Program(place, modem, "accept") as program:
            program.wait_for("^done second")
            assert [line for line in program.seen if line[0] in "otd"] == [
                expected, "took Grüße: 5 € 🌊", "done Grüße: 5 € 🌊", "offer 2|Waterworks|second|0|1795345200", "took second", "done second"]
            await_empty_store(modem)
            program.kill()
        with Program(place, modem, "accept") as program:
            modem.do(f"receive {SENDER} third")
            assert program.wait_for("^offer").startswith(f"offer 3|{SENDER}|third|0|"), program.seen
            program.end()


def modems_of_every_kind_are_understood(place):
    long_text = "Die Pumpe drei läuft trocken, und das seit einer ganzen Weile. " * 4
    wanted = ["Pump 3", long_text, "0011FF", "привет 🌊"]
    for quirk in ("echo-always", "no-echo", "double-echo", "no-blank", "alpha-field", "no-alpha-field", "newest-first",
                  "index-from-zero", "delete-empty-ok", "filled-pdu", "wide-reference", "deaf-while-busy"):
        with SimulatedModem(corvane, "--quirk", quirk) as modem:
            modem.do("interrupt \\r\\n+CREG: 1\\r\\n")
            modem.do(f"receive {SENDER} {wanted[0]}")
            modem.do(f"receive {SENDER} {long_text}")
            modem.do(f"binary {SENDER} 0011FF")
            modem.do(f"receive 110 {wanted[3]}")
            with Program(place, modem, "accept", state=f"{place}/{quirk}") as program:
                for _ in wanted:
                    program.wait_for("^done")
                await_empty_store(modem)
                program.end()
                assert sorted(texts(program.seen)) == sorted(wanted), (quirk, program.seen)


def what_cannot_be_decoded_is_handed_over(place):
    with SimulatedModem(corvane) as modem:
        damaged = "0004" + "0D91945111325476F8" + "0000" + "62112221000000" + "20" + "C8"
        for pdu in (damaged, "", "FF", "00"):
            modem.do("pdu " + pdu)
        with Program(place, modem, "accept") as program:
            for _ in range(4):
                program.wait_for("^done")
            offers = [line.split("|") for line in program.seen if line.startswith("offer")]
            assert [(sender, text, kind) for _, sender, text, kind, _ in offers] == [
                ("", damaged, "3"), ("", "", "3"), ("", "FF", "3"), ("", "00", "3")], offers
            await_empty_store(modem)


def parts_come_in_any_order_across_restarts(place):
    with SimulatedModem(corvane) as modem:
        pieces = ["Erstens, ", "zweitens, ", "drittens."]
        for order in ((3, 1, 2), (2, 3, 1)):
            for sequence in order:
                wide = order[0] == 2
                modem.do("pdu " + part(77, 3, sequence, pieces[sequence - 1], wide))
                modem.do("pdu " + part(77, 3, sequence, pieces[sequence - 1], wide))  # the network repeats it
                with Program(place, modem, "hold") as program:
                    await_empty_store(modem)
                    program.kill()
            with Program(place, modem, "accept") as program:
                program.wait_for("^done")
                time.sleep(0.2)
                assert texts(program.end()) == ["".join(pieces)], program.seen


def killed_at_any_moment_nothing_is_lost_or_taken_twice(place):
    count, seed = 120 if TIME_FACTOR == 1 else 40, random.randrange(1 << 30)
    print("kill: seed", seed)
    chance = random.Random(seed)
    wanted = [f"message {number} " + "x" * chance.choice((5, 5, 5, 170)) for number in range(count)]
    left = list(wanted)
    done, pending, kills = [], None, 0
    with SimulatedModem(corvane, "--store-size", "40", "--seed", str(seed)) as modem:
        end = time.monotonic() + LIMIT
        while len(done) < count:
            assert time.monotonic() < end, (len(done), left, pending, program.log)
            for _ in range(chance.randrange(12)):
                if left:
                    modem.do(f"receive {SENDER} {left.pop(0)}")
            with Program(place, modem, "accept", str(chance.randrange(3))) as program:
                # Longer and longer: a machine on which a program starts slowly must get somewhere, too.
                time.sleep((0.05 + chance.random() * (0.6 + kills / 50)) * TIME_FACTOR)
                lines = program.kill()
                kills += 1
            for line in lines:
                if line.startswith("offer"):
                    text = line.split("|")[2]
                    assert text not in done, ("offered after its removal was on the disk", text)
                    if pending is not None and pending != text:
                        done.append(pending)  # its removal had just reached the disk
                        assert text not in done, text
                    pending = None
                elif line.startswith("took "):
                    pending = line[5:]
                elif line.startswith("done "):
                    done.append(line[5:])
                    pending = None
            if pending is not None and not left and len(done) == count - 1:
                with Program(place, modem, "hold") as program:  # is the last one still offered?
                    time.sleep(1.5)
                    if not texts(program.kill()):
                        done.append(pending)
        assert sorted(done) == sorted(wanted), sorted(set(wanted) ^ set(done))
        with Program(place, modem, "accept") as program:
            program.wait_for("^state true")
            await_empty_store(modem)
            assert texts(program.end()) == [], program.seen
    print(f"kill: {kills} kills")


def a_modem_that_restarts_in_a_list_loses_nothing(place):
    with SimulatedModem(corvane, "--list-delay", "400ms") as modem:
        for number in range(5):
            modem.do(f"receive {SENDER} message {number}")
        with Program(place, modem, "accept") as program:
            program.wait_for("^state")
            for _ in range(3):
                time.sleep(0.3)
                modem.do("restart")
            modem.do(f"receive {SENDER} message 5")
            for _ in range(6):
                program.wait_for("^done")
            await_empty_store(modem)
            assert texts(program.end()) == [f"message {number}" for number in range(6)], program.seen


def an_announcement_during_a_list_is_followed(place):
    with SimulatedModem(corvane, "--list-delay", "300ms") as modem:
        with Program(place, modem, "accept") as program:
            for number in range(8):
                time.sleep(0.17)
                modem.do(f"receive {SENDER} message {number}")
            begin = time.monotonic()
            for _ in range(8):
                program.wait_for("^done")
            assert time.monotonic() - begin < 20, "not before the next regular list"
            await_empty_store(modem)


def a_silent_modem_and_its_return_are_reported(place):
    with SimulatedModem(corvane) as modem:
        with Program(place, modem, "accept") as program:
            program.wait_for("^state true false 0 $")
            modem.do("unplug 6s")
            modem.do(f"receive {SENDER} waited in the network")
            line = program.wait_for("^state false true 24 ")
            assert "modem port 1: the modem does not answer" in line, line
            program.wait_for("^done waited in the network|^state true false 0 $")
            program.wait_for("^done waited in the network|^state true false 0 $")
    with Program(place, place + "/nothing", "accept") as program:
        program.wait_for("^state false true 24 modem port 1: the modem does not answer, since its device is not there")
    with Program(place, None, "accept") as program:
        line = program.wait_for("^state false true 14 ")
        assert "there is no modem port 1; correct Port, or start the program with --modem 1=DEVICE" in line, line


def a_missing_sim_card_is_reported(place):
    with SimulatedModem(corvane, "--pin", "1234") as modem:
        modem.do(f"receive {SENDER} hello")
        with Program(place, modem, "accept") as program:
            line = program.wait_for("^state false true 25 ")
            assert "+CMS ERROR: 311" in line or "+CME ERROR: 11" in line, line
        with Program(place, modem.device + ",init=AT+CPIN=1234", "accept") as program:
            program.wait_for("^done hello")


def a_sim_card_that_is_taken_out_is_reported(place):
    with SimulatedModem(corvane) as modem, Program(place, modem, "accept") as program:
        program.wait_for("^state true false 0 $")
        modem.do("sim out")
        modem.do("unsolicited +CMTI: \"SM\",1")  # so that the next list comes at once
        line = program.wait_for("^state false true 25 ")
        assert "SIM not inserted" in line, line
        modem.do("sim in")
        modem.do(f"receive {SENDER} hello")
        program.wait_for("^done hello")
        await_empty_store(modem)


def a_modem_that_cannot_delete_offers_each_message_once(place):
    with SimulatedModem(corvane) as modem:
        modem.do("fail 500 CMGD 1000")
        for number in range(6):
            modem.do(f"receive {SENDER} message {number}")
        with Program(place, modem, "accept") as program:
            for _ in range(6):
                program.wait_for("^done")
            program.kill()
        for _ in range(2):
            with Program(place, modem, "accept") as program:
                program.wait_for("^state true false 0 $")
                wait_for(lambda p=program: any("does not delete" in str(line) for line in p.log), "a warning")
                time.sleep(0.5)
                assert texts(program.kill()) == [], program.seen
                assert sum("does not delete" in str(line) for line in program.log) == 1, program.log
        assert store_of(modem) == 6


def what_is_to_be_sent_stays_in_the_modem(place):
    with SimulatedModem(corvane) as modem:
        with open(modem.device, "r+b", buffering=0) as line:
            for octets in (b"AT+CMGF=0\r", b"AT+CMGW=18\r", b"0001000B915155101032F4000005E8329BFD06\x1a"):
                line.write(octets)
                time.sleep(0.2)
                os.read(line.fileno(), 4096)
        assert store_of(modem) == 1
        modem.do(f"receive {SENDER} hello")
        with Program(place, modem, "accept") as program:
            program.wait_for("^done hello")
            end = time.monotonic() + LIMIT
            while store_of(modem) != 1:
                assert time.monotonic() < end
            assert texts(program.end()) == ["hello"], program.seen


def without_a_disk_messages_stay_in_the_modem(place):
    """The folder cannot be made at first, since a file is in its place."""
    with open(place + "/state", "w", encoding="utf-8"):
        pass
    with SimulatedModem(corvane) as modem:
        modem.do(f"receive {SENDER} hello")
        with Program(place, modem, "accept") as program:
            line = program.wait_for("^state true true 22 ")
            assert place + "/state" in line, line
            time.sleep(0.5)
            assert store_of(modem) == 1
            os.remove(place + "/state")
            program.wait_for("^done hello")
            await_empty_store(modem)
            assert "state true false 0 " in program.seen[program.seen.index(line):], program.seen


def with_a_full_disk_messages_stay_in_the_modem(place):
    if not can_mount():
        print("with a full disk messages stay in the modem: SKIPPED, since this user cannot mount a file system")
        return
    disk = TinyDisk(place + "/state")
    with SimulatedModem(corvane) as modem, Program(place, modem, "accept", wrap=disk.command) as program:
        modem.do(f"receive {SENDER} before")
        program.wait_for("^done before")
        await_empty_store(modem)
        disk.fill(program.process)
        for number in range(20):
            modem.do(f"receive {SENDER} message {number} " + "x" * 100)
        line = program.wait_for("^state true true 22 ")
        assert "messages.db" in line, line
        time.sleep(0.5)
        offered = len(texts(program.seen))
        assert store_of(modem) >= 20 - offered, (offered, store_of(modem))
        disk.make_room()
        for _ in range(20):
            program.wait_for("^done message")
        await_empty_store(modem)
        assert sorted(texts(program.seen)) == sorted(["before"] + [f"message {n} " + "x" * 100 for n in range(20)])


def a_second_program_with_the_same_store_is_refused(place):
    with SimulatedModem(corvane) as first, SimulatedModem(corvane) as second:
        with Program(place, first, "accept") as program:
            program.wait_for("^state true false 0 $")
            second.do(f"receive {SENDER} hello")
            with Program(place, second, "accept") as other:
                line = other.wait_for("^state true true 22 ")
                assert "in use by process" in line and str(program.process.pid) in line, line
                assert store_of(second) == 1
                program.end()
                other.wait_for("^done hello")
                await_empty_store(second)


def a_damaged_store_is_put_aside(place):
    with SimulatedModem(corvane) as modem:
        modem.do(f"receive {SENDER} first")
        with Program(place, modem, "accept") as program:
            program.wait_for("^done first")
            await_empty_store(modem)
            program.end()
        for name in os.listdir(place + "/state"):
            if name == "messages.db":
                with open(f"{place}/state/{name}", "r+b") as file:
                    file.write(b"damaged " * 2000)
        modem.do(f"receive {SENDER} second")
        with Program(place, modem, "accept") as program:
            program.wait_for("^done second")
            assert any("damaged" in str(line) for line in program.log), program.log
            assert any("messages.db.damaged" in name for name in os.listdir(place + "/state")), os.listdir(place + "/state")
            await_empty_store(modem)


def a_full_modem_is_emptied(place, size=255, *options):
    wanted = [f"message {number}" for number in range(size)]
    with SimulatedModem(corvane, "--store-size", str(size), *options) as modem:
        for text in wanted:
            modem.do(f"receive {SENDER} {text}")
        modem.do(f"receive {SENDER} from the network")
        with Program(place, modem, "accept") as program:
            for _ in range(size + 1):
                program.wait_for("^done")
            assert texts(program.seen) == wanted + ["from the network"], program.seen
            await_empty_store(modem)


def a_full_modem_is_emptied_at_9600_baud(place):
    a_full_modem_is_emptied(place, 255, "--baud", "9600")


REPORTED = """
local outbox = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "hello", Report = true, Execute = true }
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local delivered
function cycle()
  outbox() inbox()
  inbox.Accept = inbox.Ready
  if inbox.Ready then print("offer " .. inbox.Text) end
  if outbox.Delivered == 1 and not delivered then delivered = true print("delivered") end
  io.stdout:flush()
end
"""


def reports_go_to_the_outbox(place):
    """Handed on directly (+CDS), and stored in the modem where it refuses to hand them on."""
    for how in ("direct", "stored"):
        with SimulatedModem(corvane) as modem:
            if how == "stored":
                modem.do("answer +CNMI \\r\\nERROR\\r\\n")
            with Program(place, modem, text=REPORTED, state=f"{place}/{how}") as program:
                program.wait_for("^delivered")
                modem.do(f"receive {SENDER} hello")
                program.wait_for("^offer hello")
                await_empty_store(modem)
                lines = program.end()
                assert [line for line in lines if line.startswith("offer")] == ["offer hello"], (how, lines)
                assert ("place 1: status report" in modem.output) == (how == "stored"), modem.output


TWO_BLOCKS = """
local blocks = { SMS_INBOX.new { Port = 1, Enable = true }, SMS_INBOX.new { Port = 1, Enable = true } }
local one, two = blocks[1], blocks[2]
local step, told = 1, 0
local function tell(text) print(text) io.stdout:flush() step = step + 1 end
function cycle()
  one() two()
  if step == 1 and one.Ready and two.Ready then
    tell("both " .. one.Text .. " " .. two.Text)
    one.Accept = true                       -- takes it for both
    one() two()
    if one.Ready or two.Ready then print("WRONG: still offered") end
    one.Accept, two.Accept = false, true    -- an edge while nothing is offered has no effect
    two()
    two.Accept = false
    two()
  elseif step == 2 and one.Ready and two.Ready then
    tell("both " .. one.Text .. " " .. two.Text)
    one.Enable = false
    one()
    if one.Ready or one.Valid or one.Error then print("WRONG: without Enable") end
    one.Enable, two.Enable = true, false
    two() one() one()
    if not one.Ready or two.Ready then print("WRONG: one is enabled again") end
    one.Port = 2                            -- another modem
    one()
    if one.Ready then print("WRONG: of the other port") end
  elseif step == 3 and one.Ready then
    tell("other " .. one.Text)
    one.Port, one.Accept = 1, true          -- not an acceptance of what port 1 offers
    one() one.Accept = false
    one()
    if not one.Ready then print("WRONG: port 1 offers") end
    tell("first " .. one.Text)
    one.Port = 77
    one()
    if one.ErrorId ~= 14 or one.Ready or one.Waiting ~= 0 then print("WRONG: no port 77") end
    one, two = nil, nil
    blocks = nil
    collectgarbage()
    print("end")
    plc.stop()
    one, two = SMS_INBOX.new{}, SMS_INBOX.new{}
  end
end
"""


def two_blocks_share_a_port(place):
    with SimulatedModem(corvane) as modem, SimulatedModem(corvane) as other:
        modem.do(f"receive {SENDER} first")
        modem.do(f"receive {SENDER} second")
        other.do(f"receive {SENDER} third")
        path = place + "/two.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write(TWO_BLOCKS)
        result = subprocess.run(
            [corvane, "run", path, "--cycle", "5ms", "--addin", addin, "--modem", "1=" + modem.device, "--modem",
             "2=" + other.device], capture_output=True, text=True, timeout=LIMIT, check=False,
            env=dict(os.environ, STATE_DIRECTORY=place + "/two"))
        assert result.returncode == 0, result
        assert result.stdout.splitlines() == ["both first first", "both second second", "other third", "first second", "end"], result


TESTS = [a_full_modem_is_emptied_at_9600_baud, killed_at_any_moment_nothing_is_lost_or_taken_twice,
         a_silent_modem_and_its_return_are_reported, modems_of_every_kind_are_understood,
         a_message_is_offered_again_until_it_is_accepted, what_cannot_be_decoded_is_handed_over,
         parts_come_in_any_order_across_restarts, a_modem_that_restarts_in_a_list_loses_nothing,
         an_announcement_during_a_list_is_followed, a_missing_sim_card_is_reported,
         a_sim_card_that_is_taken_out_is_reported,
         a_modem_that_cannot_delete_offers_each_message_once, what_is_to_be_sent_stays_in_the_modem,
         without_a_disk_messages_stay_in_the_modem, with_a_full_disk_messages_stay_in_the_modem,
         a_second_program_with_the_same_store_is_refused, a_damaged_store_is_put_aside, a_full_modem_is_emptied,
         two_blocks_share_a_port, reports_go_to_the_outbox]


def carry_out(test):
    place = tempfile.mkdtemp(prefix="sms-inbox-")
    begin = time.monotonic()
    try:
        test(place)
    except BaseException as error:
        print(f"FAILED: {test.__name__}: {error!r}", file=sys.stderr, flush=True)
        raise
    finally:
        shutil.rmtree(place, ignore_errors=True)
    print(f"{test.__name__.replace('_', ' ')}: {time.monotonic() - begin:.1f} s", flush=True)


with concurrent.futures.ThreadPoolExecutor(4) as pool:  # they mostly wait
    running = [pool.submit(carry_out, test) for test in TESTS if not only or test.__name__ in only]
    failures = [future.exception() for future in running if future.exception() is not None]
if failures:
    raise failures[0]
