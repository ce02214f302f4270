# SPDX-License-Identifier: MIT
"""Control programs with SMS_OUTBOX for tests, and what is in their stores."""
import os
import sqlite3
import subprocess

from patience import TIME_FACTOR

LIMIT = 90 * TIME_FACTOR  # seconds; only a failing test takes that long

# One job, with the inputs that the test gives; prints what happens, and ends with it.
ONE_JOB = """
io.stdout:setvbuf("no")
local sms = SMS_OUTBOX.new { INPUTS }
local shown = ""
function cycle()
  sms.Execute = true
  sms()
  local now = table.concat({ tostring(sms.Busy), tostring(sms.Done), tostring(sms.Error), sms.ErrorId,
                             tostring(sms.Stored), sms.Sent, sms.Failed, sms.Waiting }, " ")
  if now ~= shown then print(now) end
  shown = now
  if not sms.Busy then
    print("text: " .. sms.ErrorText)
    plc.stop()
  end
end
"""

# A job for each file job1, job2 ... in the folder that the program is given: its content is the text.
MANY_JOBS = """
io.stdout:setvbuf("no")
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234" }
local number, shown = 1, ""
function cycle()
  local file = not sms.Busy and io.open(plc.args[1] .. "/job" .. number)
  if file then
    number = number + 1
    sms.Text = file:read("*a")
    file:close()
    sms.Execute = false
    sms()
    sms.Execute = true
  end
  sms()
  local now = table.concat({ tostring(sms.Busy), tostring(sms.Done), tostring(sms.Error), sms.ErrorId,
                             tostring(sms.Stored), sms.Sent, sms.Failed, sms.ErrorText }, " ")
  if now ~= shown then print(now) end
  shown = now
end
"""

# Only calls a block, and ends when nothing has waited for a while.
NO_EDGE = """
local sms = SMS_OUTBOX.new { Port = 1 }
local idle = 0
function cycle()
  sms()
  idle = sms.Waiting == 0 and idle + 1 or 0
  if idle == 100 then plc.stop() end
end
"""


class Programs:
    """Runs programs with one state folder."""

    def __init__(self, corvane, addin, folder):
        self.corvane, self.addin, self.folder = corvane, addin, folder

    def start(self, program, *options, wrap=()):
        file = self.folder + "/program.lua"
        with open(file, "w", encoding="utf-8") as text:
            text.write(program)
        return subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", *wrap, self.corvane, "run", file, "--addin", self.addin,
             "--cycle", "10ms", *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env={**os.environ, "STATE_DIRECTORY": self.folder + "/state"})

    def finish(self, process):
        output, log = process.communicate(timeout=LIMIT)
        assert process.returncode == 0, (output, log)
        return output.splitlines(), log

    def run(self, program, *options):
        return self.finish(self.start(program, *options))

    def rows(self, columns):
        """Of the outgoing messages, in their order."""
        file = self.folder + "/state/messages.db"
        if not os.path.exists(file):
            return []
        store = sqlite3.connect(f"file:{file}?mode=ro", uri=True)
        try:
            return store.execute(f"SELECT {columns} FROM outgoing ORDER BY id").fetchall()
        finally:
            store.close()
