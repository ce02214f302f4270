#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""watchdog.py CORVANE: programs whose cycle never ends, and a socket that plays systemd."""
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from patience import TIME_FACTOR

corvane = sys.argv[1]
PATIENCE = 60 * TIME_FACTOR
LIMIT = f"{300 * TIME_FACTOR}ms"  # longer than the first cycle of a program takes
HANGS = {
    "an endless loop": ("while true do end", ["hang.lua:2 in function 'hang'", "hang.lua:4 in function <hang.lua:4>"]),
    "errors that are swallowed": ("while true do pcall(error, 'x') end", ["hang.lua:2 in function 'hang'"]),
    "a command": ("os.execute('sleep 100 & echo $! > child; wait')",
                  ["it is in os.execute, called at hang.lua:2", "[C] in function 'execute'",
                   "hang.lua:2 in function 'hang'"]),
    "a function in C": ("return ('a'):rep(40):find(('a-'):rep(40) .. 'b')",
                        ["[C] in function 'find'", "hang.lua:4 in function <hang.lua:4>"]),
    "a coroutine": ("local co = coroutine.wrap(function() while true do end end) co()",
                    ["[C] in function 'co'", "hang.lua:2 in function 'hang'"]),
    "a read": ("io.read()", ["[C] in function 'read'", "hang.lua:2 in function 'hang'"]),
}


class Systemd:
    """The socket that a service finds in NOTIFY_SOCKET."""

    def __init__(self, name):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(name)
        self.socket.settimeout(PATIENCE)
        self.heard = []

    def await_message(self, message):
        while True:
            self.heard.append(self.socket.recv(4096).decode())
            if self.heard[-1].startswith(message):
                return self.heard[-1]


def start(text, *options, **environment):
    with open("hang.lua", "w", encoding="ascii") as file:
        file.write(text)
    return subprocess.Popen([corvane, "run", "hang.lua", *options], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True,
                            env=os.environ | {"STATE_DIRECTORY": folder + "/state"} | environment)


def end(process):
    out, err = process.communicate(timeout=PATIENCE)
    return process.returncode, out, err


def every_hang_ends_with_status_3():
    for name, (hang, expected) in HANGS.items():
        text = f"local function hang()\n {hang} end\nt = plc.retain('t', {{n = 0}})\nfunction cycle() t.n = t.n + 1 if plc.cycle == 3 then hang() end end\n"
        process = start(text, "--watchdog", LIMIT, "--cycle", "1ms")
        status = process.wait(timeout=PATIENCE)  # its standard input is still open
        if os.path.exists("child"):  # the command goes on, and has our end of the log
            with open("child", encoding="ascii") as file:
                os.kill(int(file.read()), signal.SIGKILL)
            os.remove("child")
        _, err = process.communicate(timeout=PATIENCE)
        lines = [line for line in err.splitlines() if " error " in line]
        assert status == 3 and len(lines) == 1, (name, status, err)
        assert "cycle 3 has been running for" in lines[0], (name, err)
        for part in expected:
            assert part in lines[0], (name, part, err)
        with open("state/retain.json", encoding="utf-8") as file:
            assert '"n":' in file.read()
        os.remove("state/retain.json")


def processes_with(variable):
    """Those that have it in their environment; zombies have none."""
    found = []
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/environ", "rb") as file:
                if variable.encode() in file.read().split(b"\0"):
                    found.append(int(process))
        except (FileNotFoundError, ProcessLookupError, PermissionError):
            continue
    return found


def nothing_of_process_is_left():
    # One obeys SIGTERM, and one must be killed; the program hangs in calls of their blocks.
    process = start("""
local obeys = PROCESS.new { Command = "sleep 1000 & wait" }
local ignores = PROCESS.new { Command = "trap '' TERM; touch ignores; sleep 1000; sleep 1000" }
local fresh
function cycle()
  obeys.Execute, ignores.Execute = true, true
  obeys() ignores()
  local file = io.open("ignores")
  if obeys.Pid == 0 or not file then return end
  file:close()
  print("ready")
  while true do
    fresh = PROCESS.new { Command = "sleep 1000", Execute = true }
    fresh()
    collectgarbage()
  end
end""", "--watchdog", LIMIT, "--cycle", "1ms", CORVANE_TEST_OF=folder)
    process.stdout.readline()
    running = processes_with("CORVANE_TEST_OF=" + folder)
    assert len(running) >= 4, running  # corvane, two shells, and what they have started
    status, _, err = end(process)
    assert status == 3 and "longer than the watchdog allows" in err, (status, err)
    left = processes_with("CORVANE_TEST_OF=" + folder)
    for one in left:
        os.kill(one, signal.SIGKILL)
    assert not left, (left, err)


def a_short_cycle_goes_on():
    status, out, err = end(start("function cycle() if plc.cycle == 3 then print('ok') plc.stop(5) end end",
                                 "--watchdog", "5s", "--cycle", "1ms"))
    assert (status, out) == (5, "ok\n"), (status, out, err)
    slow_file = f"local t = plc.clock() while plc.clock() - t < {0.5 * TIME_FACTOR} do end function cycle() plc.stop() end"
    status, out, err = end(start(slow_file, "--watchdog", LIMIT))
    assert status == 0, err


def the_configuration_file_sets_it():
    with open("hang.conf", "w", encoding="ascii") as file:
        file.write("watchdog = 200ms\n")
    status, _, err = end(start("function cycle() while true do end end", "--config", "hang.conf"))
    assert status == 3, (status, err)
    for wrong in ("5", "-1s", "soon"):
        status, _, err = end(start("", "--watchdog", wrong))
        assert status == 2 and "--watchdog" in err, (wrong, err)


def a_service_tells_systemd():
    systemd = Systemd("notify")
    environment = {"NOTIFY_SOCKET": folder + "/notify", "WATCHDOG_USEC": str(1000000 * TIME_FACTOR)}
    process = start("os.execute('echo [$NOTIFY_SOCKET$WATCHDOG_USEC]') function cycle() end", "--cycle", "1ms",
                    **environment)
    assert process.stdout.readline() == "[]\n", "commands are not the service"
    systemd.await_message("READY=1")
    assert not any(message.startswith("STOPPING") for message in systemd.heard)
    begin = time.monotonic()
    for _ in range(5):
        systemd.await_message("WATCHDOG=1")
    assert time.monotonic() - begin < 5 * TIME_FACTOR, "less than WATCHDOG_USEC apart"
    process.send_signal(signal.SIGTERM)
    systemd.await_message("STOPPING=1")
    assert end(process)[0] == 0
    assert any(message.startswith("STATUS=") for message in systemd.heard), systemd.heard

    # Without --watchdog, systemd's time is the limit.
    systemd.heard.clear()
    process = start("function cycle() if plc.cycle == 3 then while true do end end end", "--cycle", "1ms", **environment)
    systemd.await_message("READY=1")
    status = systemd.await_message("STATUS=cycle 3 has been running for")
    assert "hang.lua:1 in function <hang.lua:1>" in status, status
    systemd.await_message("STOPPING=1")
    assert end(process)[0] == 3

    # A program that cannot run was never ready.
    systemd.heard.clear()
    process = start("x =", **environment)
    assert end(process)[0] == 2
    systemd.await_message("STOPPING=1")
    assert "READY=1" not in systemd.heard


corvane = os.path.abspath(corvane)
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    every_hang_ends_with_status_3()
    nothing_of_process_is_left()
    a_short_cycle_goes_on()
    the_configuration_file_sets_it()
    a_service_tells_systemd()
