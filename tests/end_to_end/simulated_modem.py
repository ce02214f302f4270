# SPDX-License-Identifier: MIT
"""A `corvane modem` for a test, which starts it, gives it commands and ends it."""
import os
import re
import select
import subprocess
import tempfile
import time

from patience import TIME_FACTOR

PATIENCE = 30 * TIME_FACTOR  # seconds; a longer wait is a failure


class SimulatedModem:
    def __init__(self, corvane, *options, run_as=None):
        self.folder = tempfile.TemporaryDirectory(prefix="modem-")
        os.chmod(self.folder.name, 0o777)
        self.device = self.folder.name + "/modem"
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", corvane, "modem", "--link", self.device, *options],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0, user=run_as)
        self.output = ""
        self.await_output("\n")
        assert self.output.startswith("ready "), self.output

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()
        self.folder.cleanup()

    def do(self, line):
        self.process.stdin.write(line.encode() + b"\n")

    def await_output(self, wanted):
        """Waits until this is printed after what was awaited before."""
        seen = b""
        end = time.monotonic() + PATIENCE
        while wanted.encode() not in seen:
            left = end - time.monotonic()
            assert left > 0 and select.select([self.process.stdout], [], [], left)[0], \
                f"no {wanted!r} in {seen!r}, after {self.output!r}"
            data = self.process.stdout.read(65536)
            assert data, f"the modem ended: {self.output}{seen}"
            seen += data
        self.output += seen.decode()

    def end(self):
        """Ends it as a user does; the rest of its output is in `output`."""
        self.process.terminate()
        while data := self.process.stdout.read():
            self.output += data.decode()
        status = self.process.wait(PATIENCE)
        assert status == 0, status
        assert not os.path.lexists(self.device), "its link is still there"


def store_of(modem):
    """How many messages are in its store."""
    modem.do("list")
    modem.await_output(" places taken")
    return int(re.findall(r"store: (\d+) of", modem.output)[-1])


def await_empty_store(modem, limit=90):
    end = time.monotonic() + limit
    while (taken := store_of(modem)) != 0:
        assert time.monotonic() < end, f"{taken} messages are left in the modem"
        time.sleep(0.1)


def run(*words, given=""):
    """The output of a program that must succeed."""
    result = subprocess.run(words, input=given, capture_output=True, text=True, timeout=60,
                            env={**os.environ, "LC_ALL": "C.UTF-8"})
    assert result.returncode == 0, result
    return result.stdout + result.stderr
