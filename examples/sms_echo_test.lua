-- SPDX-License-Identifier: MIT
-- corvane test sms_echo_test.lua

local function start(...)
  return test.load("sms_echo.lua", { args = { ... } })
end

test("answers each message with its own text", function()
  local program = start(2)
  program.modem:receive("+15550101234", "Level?")
  program.modem:receive("+15550105678", "Grüße")
  program:run_until(function() return program.status end, 30)
  test.equal(program.status, 0)
  test.equal(#program.modem.sent, 2)
  test.equal(program.modem.sent[1].to, "+15550101234")
  test.equal(program.modem.sent[1].text, "Level?")
  test.equal(program.modem.sent[2].text, "Grüße")
  test.contains(program.output, "Done: 2 messages answered.")
end)

test("shows a stranger's text without control characters", function()
  local program = start(1)
  program.modem:receive("+15550101234", "red \27[31m alert")
  program:run_until(function() return program.status end, 30)
  test.contains(program.output, "+15550101234 wrote: red ?[31m alert")
end)

test("runs until it is stopped if it is to answer 0 messages", function()
  local program = start(0)
  program.modem:receive("+15550101234", "Level?")
  program:run(60)
  test.equal(program.status, nil)
  test.equal(#program.modem.sent, 1)
end)

test("reports a problem once, not in every cycle", function()
  local program = start(1)
  program.modem.connected = false
  program:run(20)
  local lines = 0
  for _, line in ipairs(program.log) do
    if line.text:find("modem port 1", 1, true) then lines = lines + 1 end
  end
  test.equal(lines, 1)
end)

test("goes on after a message that cannot be answered", function()
  local program = start(2)
  program.modem:receive("Provider", "Your bill is ready")
  program.modem:receive("+15550101234", "Level?")
  program:run_until(function() return program.status end, 30)
  test.equal(#program.modem.sent, 1)
  test.contains(program.log, "Provider")
end)

test("answers a message that came before a restart once", function()
  local program = start(0)
  program.modem.network = false
  program.modem:receive("+15550101234", "Level?")
  program:run(5)
  program:restart { off = 10 }
  program.modem.network = true
  program:run(60)
  test.equal(#program.modem.sent, 1)
end)

test("wants a number as its argument", function()
  test.fails(function() start("many") end, "MESSAGES must be a number")
end)
