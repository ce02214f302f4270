#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How much resident memory an add-in adds to `corvane run`. As a program: for the release build for 32-bit ARM, in
the emulator, whose own memory is not counted."""
import os
import pathlib
import re
import subprocess
import tempfile

from simulated_modem import SimulatedModem

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


def added_by_sms(corvane, library, measure=of_process):
    """Rows for corvane_sms.so: what is done with it, bytes added, and bytes of them that are not a file's.
    library: the folder of the add-ins."""
    five_blocks = ["--addin", f"{library}/corvane_fb_lib.so"]
    with_sms = [*five_blocks, "--addin", f"{library}/corvane_sms.so"]
    without = resident(corvane, IDLE, *five_blocks, measure=measure)
    for what, program in (("loaded, no block used", IDLE), ("one SMS_OUTBOX that has sent, one SMS_INBOX", SMS)):
        added, own = (a - b for a, b in zip(resident(corvane, program, *with_sms, measure=measure), without))
        yield f"resident memory that corvane_sms.so adds: {what}", added, own


GUEST = 1 << 32  # where the emulator puts the program's first address; nothing else is above it for 32 bits


def of_guest(pid):
    """As of_process, of a 32-bit program in the emulator."""
    total = own = 0
    is_guest = False
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text(encoding="utf-8").splitlines():
        if mapping := re.match(r"([0-9a-f]+)-[0-9a-f]+ \S+ \S+ \S+ (\d+)", line):
            is_guest = GUEST <= int(mapping[1], 16) < 2 * GUEST
        elif is_guest and (match := re.match(r"Rss: +(\d+) kB", line)):
            total += 1024 * int(match[1])
        elif is_guest and (match := re.match(r"Anonymous: +(\d+) kB", line)):
            own += 1024 * int(match[1])
    return total, own


def main():
    build = pathlib.Path(__file__).parent.parent / "build"
    emulator = ["qemu-arm", "-B", hex(GUEST), "-L", str(build / "sysroot/armhf")]
    release = build / "armhf-release"
    for what, added, own in added_by_sms([*emulator, str(release / "bin/corvane")], release / "lib", of_guest):
        print(f"{what}: {added / 1e6:.1f} MB, {own / 1e6:.1f} MB of it its own, the rest code of files")


if __name__ == "__main__":
    main()
