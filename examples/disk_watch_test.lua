-- SPDX-License-Identifier: MIT
-- corvane test disk_watch_test.lua

local function start(...)
  return test.load("disk_watch.lua", { args = { ... } })
end

-- What `df -P` prints for a disk that is so full.
local function df(percent)
  return "Filesystem 1024-blocks Used Available Capacity Mounted on\n/dev/sda1 1000 500 500 " .. percent .. "% /data\n"
end

test("starts the script once when the disk reaches its limit", function()
  local program = start("/data", 80, 0)
  program.processes:answer("df -P", { output = df(79) })
  program:run(5)
  test.equal(program.vars.is_full.Q, false)
  program.processes:answer("df -P", { output = df(80) })
  program:run(10)
  local alarms = {}
  for _, started in ipairs(program.processes.started) do
    if started.command:find("disk_alarm.sh", 1, true) then alarms[#alarms + 1] = started.command end
  end
  test.equal(#alarms, 1)
  test.contains(alarms[1], "disk_alarm.sh /data 80 80")
  test.contains(program.log, "/data has reached its limit: 80 %")
end)

test("starts it again after the disk has been below its limit", function()
  local program = start("/data", 80, 0)
  local alarms = 0
  for _, percent in ipairs { 90, 70, 90 } do
    program.processes:answer("df -P", { output = df(percent) })
    program:run(2)
  end
  for _, started in ipairs(program.processes.started) do
    if started.command:find("disk_alarm.sh", 1, true) then alarms = alarms + 1 end
  end
  test.equal(alarms, 2)
end)

test("measures about once a second, and ends after as many measurements as it is told", function()
  local program = start("/", 99, 3)
  program.processes:answer("df -P", { output = df(5) })
  local seconds = program:run_until(function() return program.status end, 10)
  test.near(seconds, 2.3, 0.15) -- the timer needs a cycle to begin again
  test.equal(#program.processes.started, 3)
  test.contains(program.output, "Done: 3 measurements.")
end)

test("gives df the folder's name as it is", function()
  local program = start("/it's here; reboot", 80, 1)
  program:run(1)
  test.contains(program.processes.started[1].command, "/it's here; reboot")
end)

test("refuses a folder's name that would be two arguments", function()
  test.fails(function() start("/data\n/", 80) end, "FOLDER must be a single line")
end)

test("goes on when df hangs", function()
  local program = start("/data", 80, 2)
  program.processes:answer("df -P", { duration = 60 })
  program:run_until(function() return program.status end, 20)
  test.contains(program.output, "df printed no percentage: ")
  test.contains(program.output, "Done: 2 measurements.")
end)

test("waits for the script before it ends", function()
  local program = start("/data", 80, 1)
  program.processes:answer("df -P", { output = df(90) })
  program.processes:answer("disk_alarm.sh", { output = "cleaned up\n", duration = 5 })
  program:run(4)
  test.equal(program.status, nil)
  program:run_until(function() return program.status end, 5)
  test.contains(program.output, "cleaned up")
end)

test("says so if df prints no percentage", function()
  local program = start("/data", 80, 1)
  program.processes:answer("df -P", { error_output = "df: /data: No such file or directory\n", exit_code = 1 })
  program:run(1)
  test.contains(program.output, "df printed no percentage: df: /data: No such file")
end)

test("reads the percentage, whatever the name of the disk", function()
  local program = start()
  test.equal(program.vars.parse_percent(df(7)), 7)
  test.equal(program.vars.parse_percent("Filesystem\n//nas/my disk 1 1 1 100% /mnt\n"), 100)
  test.equal(program.vars.parse_percent("nothing"), nil)
end)
