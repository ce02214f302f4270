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
local interval = 1 -- seconds from one measurement to the next

if not limit or not measurements then
  error("LIMIT and MEASUREMENTS must be numbers", 0)
end

-- Quotes a text for the shell, which then reads it as one word, whatever it contains.
local function quoted(text)
  return "'" .. text:gsub("'", "'\\''") .. "'"
end

-- The script is in the same folder as this program.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"

-- The blocks. `df` answers within milliseconds, so the cycle can wait for it; if a disk hangs,
-- `timeout` ends it. The script may take a while, so it is started in the background.
local df = SysProcessCreateWithResult.new {
  Command = "timeout 2 df -P --", -- what follows is not an option, whatever it begins with
  Args = quoted(folder) .. " 2>&1",
}
local alarm = SysProcessCreate.new { Command = quoted(here .. "disk_alarm.sh") }

local count = 0
local next_time = plc.clock()
local above = false -- was the disk above its limit at the last measurement?

-- The percentage in the output of `df -P`: the number before the % sign in the second line.
local function parse_percent(output)
  return tonumber(output:match("\n[^\n]-(%d+)%%"))
end

-- Called for each measurement.
local function check(percent)
  print(string.format("%s is %d %% full (limit %d %%)", folder, percent, limit))
  if percent >= limit and not above then -- a rising edge: once, not at every measurement
    plc.log(string.format("%s has reached its limit: %d %%", folder, percent))
    alarm.Args = quoted(folder) .. " " .. percent .. " " .. limit
    alarm.Run = true
  end
  above = percent >= limit
end

-- The runtime calls this once per cycle (100 ms, unless --cycle says otherwise).
function cycle()
  -- A block acts on the rising edge of its input, so the input must be false in between.
  df.Run = false
  alarm.Run = false

  if plc.clock() >= next_time then
    next_time = next_time + interval
    df.Run = true
  end

  df()
  if df.Run then
    local percent = parse_percent(df.Output)
    if percent then
      check(percent)
    else
      print("df printed no percentage: " .. df.Output)
    end
    count = count + 1
    if count == measurements then
      print("Done: " .. count .. " measurements.")
      plc.stop()
    end
  end
  alarm()
end
