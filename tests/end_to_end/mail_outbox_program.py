# SPDX-License-Identifier: MIT
"""Control programs with MAIL_OUTBOX for tests, and what is in their stores."""
import os
import sqlite3
import subprocess
import time

from patience import TIME_FACTOR

LIMIT = 90 * TIME_FACTOR  # seconds; only a failing test takes so long

# One job, with the inputs that the test gives; prints what happens, and ends with it.
ONE_MAIL = """
io.stdout:setvbuf("no")
local mail = MAIL_OUTBOX.new { INPUTS }
local shown = ""
function cycle()
  mail.Execute = true
  mail()
  local now = table.concat({ tostring(mail.Busy), tostring(mail.Done), tostring(mail.Error), mail.ErrorId,
                             tostring(mail.Stored), mail.Waiting }, " ")
  if now ~= shown then print(now) end
  shown = now
  if not mail.Busy then
    print("text: " .. mail.ErrorText)
    print("refused: " .. mail.Refused:gsub("\\n", "|"))
    plc.stop()
  end
end
"""

# Waits, without any block, until the file that the test makes is there.
NO_BLOCK = """
function cycle()
  local file = io.open(plc.args[1])
  if file then file:close() plc.stop() end
end
"""

# Calls a block whose Execute stays FALSE, until the file is there.
NO_EDGE = """
local mail = MAIL_OUTBOX.new { INPUTS }
function cycle()
  mail()
  local file = io.open(plc.args[1])
  if file then file:close() plc.stop() end
end
"""


def one_mail(peer, inputs="", to="a@plant.example"):
    return ONE_MAIL.replace("INPUTS", account(peer) + f'From = "Pump 3 <pump3@plant.example>", To = "{to}", ' +
                            'Subject = "Tank 2", Text = "is full", ' + inputs)


def account(peer):
    return f'Server = "127.0.0.1", Port = {peer.port}, Security = "none", '


def wait_until(condition, what=""):
    end = time.monotonic() + LIMIT
    while not condition():
        assert time.monotonic() < end, f"never came: {what}"
        time.sleep(0.02)


class Programs:
    """Runs programs with one state folder."""

    def __init__(self, corvane, addins, folder):
        self.corvane, self.addins, self.folder = corvane, addins, folder
        self.state = folder + "/state"
        self.store = self.state + "/messages.db"

    def start(self, program, *options, wrap=(), name="program"):
        file = f"{self.folder}/{name}.lua"
        with open(file, "w", encoding="utf-8") as text:
            text.write(program)
        addins = [word for addin in self.addins for word in ("--addin", addin)]
        return subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", *wrap, self.corvane, "run", file, *addins, "--cycle", "10ms", *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
            env={**os.environ, "STATE_DIRECTORY": self.state})

    def finish(self, process):
        output, log = process.communicate(timeout=LIMIT)
        assert process.returncode == 0, (output, log)
        return output.splitlines(), log

    def run(self, program, *options, **more):
        return self.finish(self.start(program, *options, **more))

    def messages(self, *words):
        return subprocess.run([self.corvane, "messages", "--store", self.store, *words],
                              capture_output=True, text=True, timeout=LIMIT, check=False)

    def rows(self, columns):
        """Of the outgoing messages, in their order."""
        if not os.path.exists(self.store):
            return []
        store = sqlite3.connect(f"file:{self.store}?mode=ro", uri=True)
        try:
            return store.execute(f"SELECT {columns} FROM outgoing ORDER BY id").fetchall()
        except sqlite3.OperationalError:
            return []  # being made
        finally:
            store.close()

    def octets(self):
        """All that is in the state folder."""
        found = b""
        for folder, _, names in os.walk(self.state):
            for name in names:
                with open(os.path.join(folder, name), "rb") as file:
                    found += file.read()
        return found
