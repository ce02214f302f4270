-- SPDX-License-Identifier: MIT
-- Watches how full a disk is, and starts a script when a limit is exceeded.
--
--   corvane run disk_watch.lua -- [FOLDER [LIMIT [MEASUREMENTS]]]
--
-- FOLDER: a folder on the disk to watch (default: /). LIMIT: in percent (default: 1, so that you see an
-- alarm). MEASUREMENTS: how many to take before the program ends (default: 5); 0: run until stopped.

local folder = plc.args[1] or "/"
local limit = tonumber(plc.args[2] or 1)
local measurements = tonumber(plc.args[3] or 5)

if not limit or not measurements then
  error("LIMIT and MEASUREMENTS must be numbers", 0)
end
if folder:find("\n", 1, true) then
  error("FOLDER must be a single line", 0)
end

-- The script is in the same folder as this program.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"

-- The blocks. A program gets its arguments one a line, as they are: no shell reads them, whatever
-- characters they have. The cycle never waits; if a disk hangs, Timeout ends `df`.
local df = PROCESS.new { Program = "df", Arguments = "-P\n--\n" .. folder, Timeout = 2 }
local alarm = PROCESS.new { Program = here .. "disk_alarm.sh", Timeout = 60 }
local second = TON.new { PT = 1 } -- from one measurement to the next
local is_full = R_TRIG.new() -- once when the limit is reached, not at every measurement

local count = 0

-- The percentage in the output of `df -P`: the number before the % sign in the second line.
local function parse_percent(output)
  return tonumber(output:match("\n[^\n]-(%d+)%%"))
end

-- Called for each measurement.
local function check(percent)
  print(string.format("%s is %d %% full (limit %d %%)", folder, percent, limit))
  is_full.CLK = percent >= limit
  is_full()
  if is_full.Q then
    plc.log(string.format("%s has reached its limit: %d %%", folder, percent))
    alarm.Arguments = string.format("%s\n%d\n%d", folder, percent, limit)
    alarm.Execute = true -- the rising edge starts it
  end
end

-- True in the cycle in which the block has ended. Execute falls, so that the next job is an edge again.
local function has_ended(block)
  block()
  if block.Execute and not block.Busy then
    block.Execute = false
    return true
  end
  return false
end

-- The runtime calls this once per cycle (100 ms, unless --cycle says otherwise).
function cycle()
  second.IN = not second.Q -- begins again whenever the second is over
  second()
  if plc.cycle == 1 or (second.Q and (measurements == 0 or count < measurements)) then
    df.Execute = true
  end

  if has_ended(df) then
    local percent = df.Done and parse_percent(df.Output)
    if percent then
      check(percent)
    else
      print("df printed no percentage: " .. df.ErrorOutput .. df.ErrorText)
    end
    count = count + 1
  end

  if has_ended(alarm) then
    io.write(alarm.Output, alarm.ErrorOutput, alarm.ErrorText)
  end

  if count == measurements and measurements > 0 and not alarm.Execute then
    print("Done: " .. count .. " measurements.")
    plc.stop()
  end
end
