#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""modem_console.py CORVANE: the simulator's console with input and output that never end, fail or stop."""
import array
import fcntl
import os
import select
import signal
import subprocess
import sys
import termios
import time

sys.dont_write_bytecode = True
from simulated_modem import PATIENCE

corvane, = sys.argv[1:]
COMMAND = [corvane, "modem", "--tcp", "127.0.0.1:0"]
LOST = b"corvane: standard output could not be written in full\n"


def start(**streams):
    # A build with the address sanitizer keeps freed memory, 256 MiB by default.
    options = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"
    return subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *COMMAND], stderr=subprocess.PIPE,
                            env={**os.environ, "ASAN_OPTIONS": options}, **streams)


def most_memory(process):
    """The peak memory use of the process, in MiB."""
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmHWM")) / 1024


def read(stream, count):
    size = 0
    while size < count:
        assert select.select([stream], [], [], PATIENCE)[0], "no output"
        data = stream.read(65536)
        assert data, "the output has ended"
        size += len(data)


def await_full_pipe(stream):
    """Waits until the pipe accepts no more: how much that is depends on the sizes of the writes."""
    end = time.monotonic() + PATIENCE
    seen, size = -1, array.array("i", [0])
    while seen != size[0] or size[0] < 16384:
        assert time.monotonic() < end, f"{size[0]} bytes"
        seen = size[0]
        time.sleep(0.5)
        fcntl.ioctl(stream, termios.FIONREAD, size)


def a_signal_ends_it_while_input_never_ends_and_nobody_reads():
    with subprocess.Popen(["yes", "list"], stdout=subprocess.PIPE) as yes:
        modem = start(stdin=yes.stdout, stdout=subprocess.PIPE, bufsize=0)
        read(modem.stdout, 100_000)
        await_full_pipe(modem.stdout)
        modem.send_signal(signal.SIGTERM)
        assert modem.wait(PATIENCE) == 0, modem
        yes.kill()
        yes.stdout.close()


def memory_stays_bounded():
    with subprocess.Popen(["yes", "list"], stdout=subprocess.PIPE) as yes:
        modem = start(stdin=yes.stdout, stdout=subprocess.PIPE, bufsize=0)
        read(modem.stdout, 1_000_000)
        start_memory = most_memory(modem)
        read(modem.stdout, 20_000_000)
        grown = most_memory(modem) - start_memory
        modem.kill()
        modem.wait()
        yes.kill()
        yes.stdout.close()
    # Up to 8 MiB may wait for a reader, and twice that while a string grows.
    assert grown < 40, f"{grown} MiB more"


def a_line_without_end_is_one_error():
    modem = start(stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    out, _ = modem.communicate(b"x" * 20_000_000 + b"\nquit\n", PATIENCE)
    assert modem.returncode == 0, modem
    assert out.splitlines()[1:] == [b"error: a line is longer than 1 MiB"], out[:1000]


def output_that_cannot_be_written_ends_it():
    with open("/dev/full", "wb") as full:
        modem = start(stdin=subprocess.PIPE, stdout=full)
        _, err = modem.communicate(timeout=PATIENCE)
    assert (modem.returncode, err) == (1, LOST), (modem.returncode, err)
    modem = start(stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    read(modem.stdout, 1)
    modem.stdout.close()
    modem.stdin.write(b"list\n")
    assert modem.wait(PATIENCE) == 1, modem
    assert modem.stderr.read() == LOST


def the_end_of_input_leaves_the_modem_alone():
    modem = start(stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    modem.stdin.write(b"list\n" * 1000)
    modem.stdin.close()
    lines = []
    while len(lines) < 1001:
        lines.append(modem.stdout.readline())
    assert lines[1:] == [b"store: 0 of 20 places taken\n"] * 1000, lines[:3]
    assert modem.poll() is None
    modem.terminate()
    assert modem.wait(PATIENCE) == 0


a_signal_ends_it_while_input_never_ends_and_nobody_reads()
memory_stays_bounded()
a_line_without_end_is_one_error()
output_that_cannot_be_written_ends_it()
the_end_of_input_leaves_the_modem_alone()
