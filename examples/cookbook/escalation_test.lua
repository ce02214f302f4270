-- SPDX-License-Identifier: MIT
-- corvane test escalation_test.lua

local FIRST, SECOND = "+15550101234", "+15550105678"

local function start_with_alarm()
  local program = test.load("escalation.lua")
  program.vars.alarm_active = true
  program:run(5)
  return program
end

local function called(program)
  local numbers = {}
  for i, sms in ipairs(program.modem.sent) do
    numbers[i] = sms.to
  end
  return numbers
end

test("calls nobody without an alarm", function()
  local program = test.load("escalation.lua")
  program:run(1200)
  test.equal(called(program), {})
end)

test("calls the first person, and the second one after ten minutes", function()
  local program = start_with_alarm()
  test.equal(called(program), { FIRST })
  program:run(590)
  test.equal(called(program), { FIRST })
  program:run(10)
  test.equal(called(program), { FIRST, SECOND })
  program:run(3600)
  test.equal(called(program), { FIRST, SECOND })
end)

test("does not call the second person if the first acknowledges", function()
  local program = start_with_alarm()
  program.modem:receive(FIRST, "ack")
  program:run(1200)
  test.equal(called(program), { FIRST })
  test.contains(program.log, "acknowledged by " .. FIRST)
end)

test("takes no acknowledgement from somebody who was not called", function()
  local program = start_with_alarm()
  program.modem:receive("+15559998877", "ACK")
  program.modem:receive(SECOND, "ACK")
  program:run(610)
  test.equal(called(program), { FIRST, SECOND })
end)

test("goes on where it was after a restart", function()
  local program = start_with_alarm()
  program:run(300)
  program:restart()
  program.vars.alarm_active = true
  program:run(290)
  test.equal(called(program), { FIRST })
  program:run(15)
  test.equal(called(program), { FIRST, SECOND })
end)

test("a new alarm begins with the first person", function()
  local program = start_with_alarm()
  program.modem:receive(FIRST, "ACK")
  program:run(5)
  program.vars.alarm_active = false
  program:run(5)
  program.vars.alarm_active = true
  program:run(5)
  test.equal(called(program), { FIRST, FIRST })
end)
