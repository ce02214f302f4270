#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How much resident memory an add-in adds to `corvane run`. As a program: for the release builds for ARM that there
are, in the emulator, whose own memory is not counted."""
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).parent.parent / "tests/end_to_end"))
from simulated_modem import SimulatedModem
from smtp_peer import SmtpPeer

IDLE = "function cycle() if plc.cycle == 10 then print('measure') end end\n"
SMS = """
sms = SMS_OUTBOX.new { Port = 1, Receiver = "+4915112345678", Text = "Pump 3 has stopped" }
inbox = SMS_INBOX.new { Port = 1, Enable = true }
function cycle()
  sms.Execute = true
  local was_done = sms.Done
  sms() inbox()
  if sms.Done and not was_done then print('measure') end
end
"""
FIVE = """
local sender = SEND_SMS.new { Port = 1, Receiver = "4915112345678", Message = "Pump 3 has stopped" }
local reader = READ_SMS.new { Port = 1, Read = true }
sender.Send = true
function cycle()
  sender() reader()
  if sender.Sent and not told then told = true print('measure') end
end
"""
STANDARD = """
local timer = TON.new { PT = 0.01, IN = true }
local process = PROCESS.new { Program = "true", Execute = true }
function cycle()
  timer() process()
  if timer.Q and process.Done and not told then told = true print('measure') end
end
"""
MAIL = """
local mail = MAIL_OUTBOX.new { Server = "127.0.0.1", Port = PORT, Security = "none", From = "pump3@plant.example",
                               To = "a@plant.example", Subject = "Pump 3", Text = "It has stopped.", Execute = true }
function cycle()
  mail()
  if mail.Done and not told then told = true print('measure') end
end
"""
MODBUS = """
local meter = MODBUS_TCP.new { Server = "127.0.0.1", Port = PORT, Execute = true }
function cycle()
  meter()
  if meter.Error and not told then told = true print('measure') end
end
"""


def of_process(pid):
    """All resident memory of the process, and that of it which is not a file's, in bytes."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return [1024 * int(re.search(rf"{name}:\s+(\d+) kB", status)[1]) for name in ("VmRSS", "RssAnon")]


def resident(corvane, program, *options, measure=of_process):
    """What `measure` finds for `corvane run` with a program that has printed a line. corvane: the command, a list."""
    with tempfile.TemporaryDirectory(dir=pathlib.Path(corvane[-1]).parents[1]) as folder:
        path = folder + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write('io.stdout:setvbuf("no")\n' + program)
        modem = SimulatedModem(corvane, folder)
        process = subprocess.Popen([*corvane, "run", path, "--modem", f"1={modem.device}", *options],
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                   env={**os.environ, "STATE_DIRECTORY": folder})
        try:
            assert process.stdout.readline() == "measure\n"
            return measure(process.pid)
        finally:
            process.terminate()
            process.communicate()
            modem.end()


def added_by(add_in, uses, corvane, library, measure=of_process):
    """Rows for an add-in: what is done with it, bytes added, and bytes of them that are not a file's.
    uses: what a program does with its blocks, and the program. library: the folder of the add-ins."""
    besides = "corvane_standard.so" if add_in == "corvane_fb_lib.so" else "corvane_fb_lib.so"
    base = ["--addin", f"{library}/{besides}"]
    without = resident(corvane, IDLE, *base, measure=measure)
    for what, program in ("loaded, no block used", IDLE), uses:
        found = resident(corvane, program, *base, "--addin", f"{library}/{add_in}", measure=measure)
        added, own = (a - b for a, b in zip(found, without))
        yield f"resident memory that {add_in} adds: {what}", added, own


def added_by_sms(corvane, library, measure=of_process):
    return added_by("corvane_sms.so", ("one SMS_OUTBOX that has sent, one SMS_INBOX", SMS), corvane, library, measure)


def added_by_each(corvane, library, measure):
    """The rows of added_by for all our add-ins."""
    yield from added_by("corvane_fb_lib.so", ("one SEND_SMS that has sent, one READ_SMS", FIVE), corvane, library, measure)
    yield from added_by_sms(corvane, library, measure)
    with SmtpPeer() as peer:
        mail = MAIL.replace("PORT", str(peer.port))
        yield from added_by("corvane_mail.so", ("one MAIL_OUTBOX that has sent", mail), corvane, library, measure)
    with socket.socket() as nobody:  # bound, but not listening: a connection is refused
        nobody.bind(("127.0.0.1", 0))
        modbus = MODBUS.replace("PORT", str(nobody.getsockname()[1]))
        yield from added_by("corvane_modbus.so", ("one MODBUS_TCP without a server", modbus), corvane, library, measure)
    yield from added_by("corvane_standard.so", ("one TON, one PROCESS that has run", STANDARD), corvane, library, measure)


# Where the emulator puts the first address of the program, and how many it keeps for it.
GUEST_BASE, GUEST_SIZE = 0x100000000000, {"armhf": 1 << 32, "arm64": 0x6000000000}


def of_guest(size):
    """As of_process, of a program with so many addresses, in the emulator."""
    def measure(pid):
        total = own = 0
        is_guest = False
        for line in pathlib.Path(f"/proc/{pid}/smaps").read_text(encoding="utf-8").splitlines():
            if mapping := re.match(r"([0-9a-f]+)-[0-9a-f]+ \S+ \S+ \S+ (\d+)", line):
                is_guest = GUEST_BASE <= int(mapping[1], 16) < GUEST_BASE + size
            elif is_guest and (match := re.match(r"Rss: +(\d+) kB", line)):
                total += 1024 * int(match[1])
            elif is_guest and (match := re.match(r"Anonymous: +(\d+) kB", line)):
                own += 1024 * int(match[1])
        return total, own
    return measure


def main():
    build = pathlib.Path(__file__).parent.parent / "build"
    for architecture, emulator in ("armhf", ["qemu-arm"]), ("arm64", ["qemu-aarch64", "-R", hex(GUEST_SIZE["arm64"])]):
        release = build / f"{architecture}-release"
        if not release.exists():
            continue
        command = [*emulator, "-B", hex(GUEST_BASE), "-L", str(build / "sysroot" / architecture), str(release / "bin/corvane")]
        for what, added, own in added_by_each(command, release / "lib", of_guest(GUEST_SIZE[architecture])):
            print(f"{architecture}: {what}: {added / 1e6:.1f} MB, {own / 1e6:.1f} MB of it its own, the rest code of files",
                  flush=True)


if __name__ == "__main__":
    main()
