#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""modbus_tcp.py CORVANE ADDIN: MODBUS_TCP in control programs, with a server of pymodbus, which is independent of
the library that the block uses, and with servers that never answer."""
import os
import re
import socket
import subprocess
import sys
import tempfile
import time

corvane, addin = sys.argv[1:]
PATIENCE = 120

SERVER = """
import sys
from pymodbus.datastore import ModbusSequentialDataBlock, ModbusServerContext, ModbusSlaveContext
from pymodbus.server import StartTcpServer
def table(step):
    return ModbusSequentialDataBlock(0, [step * i % 65536 for i in range(3000)])
def bits(step):
    return ModbusSequentialDataBlock(0, [i % step == 0 for i in range(3000)])
units = {n: ModbusSlaveContext(zero_mode=True, co=bits(2), di=bits(3), hr=table(n), ir=table(100 * n)) for n in (1, 7)}
StartTcpServer(context=ModbusServerContext(units, single=False), address=(sys.argv[1], int(sys.argv[2])),
               allow_reuse_address=True)
"""


class Server:
    """A process with a Modbus server: units 1 and 7."""

    def __init__(self, host="127.0.0.1"):
        self.host, self.process = host, None
        with socket.socket(socket.AF_INET6 if ":" in host else socket.AF_INET) as free:
            free.bind((host, 0))
            self.port = free.getsockname()[1]
        self.start()

    def start(self):
        self.process = subprocess.Popen([sys.executable, "-c", SERVER, self.host, str(self.port)],
                                        stderr=subprocess.DEVNULL)
        end = time.monotonic() + PATIENCE
        while True:
            try:
                socket.create_connection((self.host, self.port)).close()
                return
            except OSError:
                assert time.monotonic() < end and self.process.poll() is None, "the server does not start"
                time.sleep(0.02)

    def stop(self):
        self.process.kill()
        self.process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


def begin(program, *options):
    with tempfile.NamedTemporaryFile("w", suffix=".lua", delete=False, encoding="utf-8") as file:
        file.write(program)
    return subprocess.Popen([corvane, "run", file.name, "--addin", addin, "--cycle", "10ms", *options],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def finish(process):
    output, log = process.communicate(timeout=PATIENCE)
    os.unlink(process.args[2])
    assert process.returncode == 0, (process.returncode, output, log)
    assert not re.search(r" (warning|error) (?!.*overrun)", log), log
    return output.splitlines()


# Does jobs one after the other; each line of the output is one job's outputs.
JOBS = """
local jobs = { %s }
local number, fb = 0, nil
function cycle()
  if not fb then
    number = number + 1
    if not jobs[number] then plc.stop() return end
    fb = MODBUS_TCP.new(jobs[number])
    fb.Server, fb.Port, fb.Unit, fb.Timeout = "%s", %d, fb.Unit == 0 and 1 or fb.Unit, %d
    fb.Execute = true
  end
  fb()
  if fb.Busy then return end
  print(fb.Done, fb.ErrorId, fb.Exception, fb.Result, fb.ErrorText)
  fb = nil
end
"""


def do(server, *jobs):
    lines = finish(begin(JOBS % (", ".join("{ %s }" % job for job in jobs), server.host, server.port, PATIENCE)))
    return [line.split("\t") for line in lines]


def results(server, *jobs):
    found = do(server, *jobs)
    assert all(line[:3] == ["true", "0", "0"] for line in found), found
    return [line[3] for line in found]


def everything_is_read_and_written(host):
    with Server(host) as server:
        assert results(
            server, 'Address = 5', 'Address = 5, Unit = 7', 'Address = 5, Count = 3', 'Table = "input registers", Address = 2',
            'Table = "coils", Address = 1, Count = 4', 'Table = "discrete inputs", Count = 4',
            'Write = true, Address = 10, Values = "1.5 -2", Format = "REAL", Order = "CDAB"',
            'Address = 10, Count = 2, Format = "REAL", Order = "CDAB"', 'Address = 10, Count = 4',
            'Write = true, Address = 20, Values = -7, Format = "INT"', 'Address = 20, Format = "INT"', 'Address = 20',
            'Write = true, Table = "coils", Address = 30, Values = "1 1 1 0 1"',
            'Write = true, Table = "coils", Address = 31, Values = false', 'Table = "coils", Address = 30, Count = 5',
        ) == ["5", "35", "5 6 7", "200", "0 1 0 1", "1 0 0 1", "", "1.5 -2", "0 16320 0 49152", "", "-7", "65529", "", "",
              "1 0 1 0 1"]


def the_limits_of_the_protocol_are_those_of_the_server():
    ones = " ".join(["1"] * 1968)
    with Server() as server:
        long = results(server, 'Count = 125', 'Table = "coils", Count = 2000',
                       f'Write = true, Address = 100, Values = "{ones[:245]}"', 'Address = 100, Count = 123',
                       f'Write = true, Table = "coils", Values = "{ones}"', 'Table = "coils", Count = 1968')
        assert long[0] == " ".join(str(i) for i in range(125))
        assert long[1] == " ".join(str((i + 1) % 2) for i in range(2000))
        assert long[3] == " ".join(["1"] * 123) and long[5] == ones


def the_server_refuses_what_it_does_not_have():
    with Server() as server:
        [line] = do(server, "Address = 60000")
    assert line[:4] == ["false", "52", "2", ""] and "ILLEGAL DATA ADDRESS (exception 2)" in line[4], line


POLLING = """
local fb = MODBUS_TCP.new { Server = "127.0.0.1", Port = %d, Unit = 1, Address = 9, Enable = true, Period = 0.05 }
local said
function cycle()
  fb()
  local state = fb.Valid and "good " .. fb.Result or fb.Error and "bad " .. fb.ErrorId
  if state and state ~= said then
    said = state
    print(said)
    io.stdout:flush()
  end
end
"""


def polling_survives_a_restart_of_the_server():
    with Server() as server:
        process = begin(POLLING % server.port)
        assert process.stdout.readline() == "good 9\n"
        server.stop()
        assert process.stdout.readline() in ("bad 50\n", "bad 51\n")  # 51: it was killed while it answered
        server.start()
        while (line := process.stdout.readline()) != "good 9\n":
            assert line == "bad 50\n", line
        process.terminate()
        assert finish(process) == []


# Blocks that poll or write all the time; %s is a table of ports.
DEAD = """
local blocks = {}
for n, port in ipairs { %s } do
  for i = 1, 5 do
    blocks[#blocks + 1] = MODBUS_TCP.new { Server = "127.0.0.1", Port = port, Unit = 1, Timeout = 60, Write = i > 3,
                                           Values = 1, Enable = i ~= 5, Period = 0.01 }
  end
end
local calls = {}
function cycle()
  for _, fb in ipairs(blocks) do
    fb.Execute = not fb.Enable and not fb.Execute
    local before = plc.clock()
    fb()
    calls[#calls + 1] = plc.clock() - before
  end
  if plc.cycle == 100 then
    table.sort(calls)
    print(calls[math.floor(#calls * 0.99)])
    plc.stop()
  end
end
"""


def dead_servers_hold_up_neither_calls_nor_the_end():
    with socket.create_server(("127.0.0.1", 0)) as silent, socket.create_server(("127.0.0.1", 0), backlog=0) as deaf:
        fillers = [socket.socket() for _ in range(4)]  # its queue is full: the system drops further attempts
        for filler in fillers:
            filler.setblocking(False)
            filler.connect_ex(deaf.getsockname())
        with socket.socket() as closed:
            closed.bind(("127.0.0.1", 0))
            ports = ", ".join(str(one.getsockname()[1]) for one in (silent, deaf, closed))
            process = begin(DEAD % ports, "--log-level", "error")
            slow = float(process.stdout.readline())
            printed = time.monotonic()
            finish(process)
            assert time.monotonic() - printed < 5, "the end of the program waits for a server"
        for filler in fillers:
            filler.close()
    print(f"99 % of the calls take less than {slow * 1e6:.0f} us")
    assert slow < 0.002


everything_is_read_and_written("127.0.0.1")
everything_is_read_and_written("::1")
the_limits_of_the_protocol_are_those_of_the_server()
the_server_refuses_what_it_does_not_have()
polling_survives_a_restart_of_the_server()
dead_servers_hold_up_neither_calls_nor_the_end()
print("MODBUS_TCP works with an independent server")
