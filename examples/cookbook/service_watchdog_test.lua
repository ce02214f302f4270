-- SPDX-License-Identifier: MIT
-- corvane test service_watchdog_test.lua

local function start()
  return test.load("service_watchdog.lua")
end

local function count(program, piece)
  local found = 0
  for _, started in ipairs(program.processes.started) do
    if started.command:find(piece, 1, true) then found = found + 1 end
  end
  return found
end

test("asks once a minute, and leaves a service that answers alone", function()
  local program = start()
  program:run(602)
  test.near(count(program, "curl"), 10, 1)
  test.equal(count(program, "systemctl"), 0)
end)

test("restarts the service after three failures in a row", function()
  local program = start()
  program.processes:answer("curl", { exit_code = 7 })
  program:run(130)
  test.equal(count(program, "systemctl"), 0)
  program:run(60)
  test.equal(count(program, "systemctl restart historian.service"), 1)
  program.processes:answer("curl", { exit_code = 0 })
  program:run(600)
  test.equal(count(program, "systemctl"), 1)
  test.equal(program.modem.sent, {})
end)

test("forgets failures when the service answers again", function()
  local program = start()
  for _ = 1, 5 do
    program.processes:answer("curl", { exit_code = 7 })
    program:run(120)
    program.processes:answer("curl", {})
    program:run(61)
  end
  test.equal(count(program, "systemctl"), 0)
end)

test("counts a check that hangs as a failure", function()
  local program = start()
  program.processes:answer("curl", { duration = 1e6 })
  program:run(300)
  test.equal(count(program, "systemctl"), 1)
end)

test("calls for help once if a restart does not help", function()
  local program = start()
  program.processes:answer("curl", { exit_code = 7 })
  program:run(3600)
  test.check(count(program, "systemctl") > 10)
  test.equal(#program.modem.sent, 1)
end)

test("says why a restart has failed", function()
  local program = start()
  program.processes:answer("curl", { exit_code = 7 })
  program.processes:answer("systemctl", { not_started = "systemctl: not found" })
  program:run(200)
  test.contains(program.log, "the restart has failed: systemctl: not found")
end)
