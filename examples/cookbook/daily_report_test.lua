-- SPDX-License-Identifier: MIT
-- corvane test daily_report_test.lua

local function start(now, zone)
  return test.load("daily_report.lua", {
    args = { "plc", "s3cret" }, now = now, zone = zone or "Europe/Berlin", cycle = 5,
  })
end

test("mails once a day at half past six", function()
  local program = start("2026-01-15 06:29")
  program.vars.level = 240
  program:run(30)
  program.vars.level = 260
  test.equal(program.mail.sent, {})
  program:run(60)
  test.equal(#program.mail.sent, 1)
  test.contains(program.mail.sent[1].text, "from 240 to 260 cm")
  program:run(86400)
  test.equal(#program.mail.sent, 2)
end)

test("follows the clock on the day on which summer time begins", function()
  local program = start("2026-03-29 06:29")
  program:run(120)
  test.equal(#program.mail.sent, 1)
end)

test("a restart just after the report does not send it again", function()
  local program = start("2026-01-15 06:29:50")
  program:run(60)
  test.equal(#program.mail.sent, 1)
  program:restart()
  program:run(600)
  test.equal(#program.mail.sent, 1)
end)

test("makes up for a report that was due while the program was not running", function()
  local program = start("2026-01-15 06:20")
  program:run(10)
  program:restart { off = 1800 }
  program:run(60)
  test.equal(#program.mail.sent, 1)
end)

test("tries again while the mail server is away", function()
  local program = start("2026-01-15 06:29:50")
  program.mail.away = true
  program:run(120)
  test.equal(program.mail.sent, {})
  program.mail.away = false
  program:run(900)
  test.equal(#program.mail.sent, 1)
  test.equal(program.mail.sent[1].recipients, { "operator@plant.example" })
end)

test("a power cut neither loses the report nor doubles it", function()
  local program = start("2026-01-15 06:29:50")
  program.mail.away = true
  program:run(30)
  program:restart { power_cut = true }
  program.mail.away = false
  program:run(900)
  test.equal(#program.mail.sent, 1)
  program:restart { power_cut = true }
  program:run(900)
  test.equal(#program.mail.sent, 1)
end)

test("says why the report was not sent", function()
  local program = start("2026-01-15 06:29:50")
  program.mail.login_refused = true
  program:run(120)
  local told = 0
  for _, line in ipairs(program.log) do
    if line.text:find("the report: ", 1, true) then told = told + 1 end
  end
  test.equal(told, 1)
end)
