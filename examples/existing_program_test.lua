-- SPDX-License-Identifier: MIT
-- corvane test existing_program_test.lua

local function start(questions)
  local program = test.load("existing_program.lua", { args = { "mail.example", "25", "plc", "s3cret", questions } })
  program.processes:answer("df -P", { output = "42%\n" })
  return program
end

test("answers by SMS and e-mail, and ends", function()
  local program = start(1)
  program.modem:receive("+15550101234", "disk")
  program:run_until(function() return program.status end, 30)
  test.equal(program.status, 0)
  test.equal(program.modem.sent[1].to, "15550101234")
  test.equal(program.modem.sent[1].text, "The disk is 42% full")
  test.contains(program.mail.sent[1].text, "15550101234 has asked, and got: The disk is 42% full")
  test.contains(program.output, "Done: 1 questions answered.")
end)

test("switches the lamp on in the background", function()
  local program = start(1)
  program.modem:receive("+15550101234", "DISK")
  program:run(2)
  local last = program.processes.started[#program.processes.started]
  test.equal(last.block, "SysProcessCreate")
  test.contains(last.command, "the lamp is on")
end)

test("leaves other messages alone", function()
  local program = start(0)
  program.modem:receive("+15550101234", "hello")
  program:run(10)
  test.equal(program.modem.sent, {})
  test.equal(program.processes.started, {})
end)

test("says what is missing on its command line", function()
  test.fails(function() test.load("existing_program.lua") end, "required: MAILSERVER PORT")
end)
