-- SPDX-License-Identifier: MIT
-- What a program under test finds instead of the machine's clock and processes. Part of corvane test.
local now, clock, start = ...

plc.clock = clock

local time, date = os.time, os.date

function os.time(table)
  if table == nil then return math.floor(now()) end
  return time(table)
end

function os.date(format, seconds)
  return date(format or "%c", seconds or math.floor(now()))
end

os.execute = start

function io.popen()
  error("io.popen starts a process, which a test does not do; use the block PROCESS", 2)
end
