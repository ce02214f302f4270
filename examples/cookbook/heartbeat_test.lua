-- SPDX-License-Identifier: MIT
-- corvane test heartbeat_test.lua

local function start(now)
  return test.load("heartbeat.lua", { now = now, zone = "Europe/Berlin", cycle = 5 })
end

test("goes out once a day", function()
  local program = start("2026-01-15 07:00")
  program:run(3 * 86400)
  test.equal(#program.modem.sent, 3)
end)

test("is not repeated by a restart or a power cut", function()
  local program = start("2026-01-15 07:59:55")
  program:run(30)
  test.equal(#program.modem.sent, 1)
  program:restart()
  program:run(60)
  program:restart { power_cut = true, off = 5 }
  program:run(3600)
  test.equal(#program.modem.sent, 1)
end)

test("is not repeated although the power failed before the time was written down", function()
  local program = start("2026-01-15 07:59:59")
  program:step(3)
  program:restart { power_cut = true }
  program:run(600)
  test.equal(#program.modem.sent, 1)
end)

test("is made up for if the controller was off at eight", function()
  local program = start("2026-01-15 07:30")
  program:run(30)
  program:restart { off = 2400 }
  program:run(30)
  test.equal(#program.modem.sent, 1)
end)

test("waits for the network", function()
  local program = start("2026-01-15 07:59:55")
  program.modem.network = false
  program:run(60)
  program.modem.network = true
  program:run(900)
  test.equal(#program.modem.sent, 1)
end)
