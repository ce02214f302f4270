-- SPDX-License-Identifier: MIT
-- corvane test remote_command_test.lua

local ANNA, STRANGER = "+15550101234", "+15559998877"

local function start()
  return test.load("remote_command.lua", { args = { "4711" } })
end

local function send(program, from, text)
  program.modem:receive(from, text)
  program:run(2)
  local sent = program.modem.sent
  return sent[#sent] and sent[#sent].text
end

test("switches the pump with the right code, and answers", function()
  local program = start()
  test.equal(send(program, ANNA, "pump on 4711"), "The pump is ON.")
  test.equal(program.vars.plant.pump, true)
  test.equal(send(program, ANNA, "Status"), "The pump is ON.")
  test.equal(send(program, ANNA, "PUMP OFF 4711"), "The pump is OFF.")
  test.equal(program.vars.plant.pump, false)
end)

test("does nothing with a wrong code, and nothing at all after three of them", function()
  local program = start()
  for _ = 1, 3 do
    test.equal(send(program, ANNA, "PUMP ON 0000"), "Wrong code.")
  end
  send(program, ANNA, "PUMP ON 4711")
  test.equal(program.vars.plant.pump, false)
  test.equal(#program.modem.sent, 3)
  test.contains(program.log, "Anna is locked out")
end)

test("ignores a stranger who has the code", function()
  local program = start()
  test.equal(send(program, STRANGER, "PUMP ON 4711"), nil)
  test.equal(program.vars.plant.pump, false)
  test.contains(program.log, "ignored: a message from an unknown number")
end)

test("says what it understands", function()
  local program = start()
  for _, text in ipairs { "hello", "PUMP OF 4711", "PUMP ON", "PUMP ON 4711; reboot", "" } do
    test.contains(send(program, ANNA, text), "Commands: STATUS", text)
  end
  test.equal(program.vars.plant.pump, false)
end)

test("answers everybody, one after the other", function()
  local program = start()
  program.modem:receive(ANNA, "STATUS")
  program.modem:receive("+15550105678", "STATUS")
  program:run(5)
  test.equal(#program.modem.sent, 2)
end)

test("keeps the pump's state across a restart", function()
  local program = start()
  send(program, ANNA, "PUMP ON 4711")
  program:restart()
  test.equal(program.vars.plant.pump, true)
end)
