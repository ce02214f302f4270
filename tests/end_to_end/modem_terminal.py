#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""modem_terminal.py CORVANE: the simulated modem's terminal survives the programs that open it."""
import os
import subprocess
import sys
import time

sys.dont_write_bytecode = True
from simulated_modem import PATIENCE, SimulatedModem

corvane, = sys.argv[1:]
# The claim on a terminal does not bind root.
plain_user = 65534 if os.geteuid() == 0 else os.geteuid()


def ask(device, claim):
    """A plain user's program: opens the terminal, claims it or not, and asks once."""
    code = (
        "import fcntl, os, sys, termios\n"
        "fd = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY)\n"
        "if sys.argv[2] == 'claim': fcntl.ioctl(fd, termios.TIOCEXCL)\n"
        "os.write(fd, b'AT\\r')\n"
        "answer = b''\n"
        "while not answer.endswith(b'OK\\r\\n'): answer += os.read(fd, 100)\n"
        "print(answer)\n")
    return subprocess.run(["/usr/bin/python3", "-c", code, device, claim], capture_output=True,
                          text=True, timeout=PATIENCE, user=plain_user)


with SimulatedModem(corvane, run_as=plain_user) as modem:
    first = ask(modem.device, "claim")
    assert first.stdout == "b'AT\\r\\r\\nOK\\r\\n'\n", first
    # On a pseudo-terminal the claim outlives the program, so a new pseudo-terminal replaces it.
    end = time.monotonic() + PATIENCE
    while (second := ask(modem.device, "share")).returncode != 0:
        assert "Device or resource busy" in second.stderr or "No such file" in second.stderr, second
        assert time.monotonic() < end, second
    assert second.stdout == "b'AT\\r\\r\\nOK\\r\\n'\n", second
    modem.end()
