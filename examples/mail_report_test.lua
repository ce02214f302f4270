-- SPDX-License-Identifier: MIT
-- corvane test mail_report_test.lua

local function start()
  return test.load("mail_report.lua", {
    args = { "mail.example", "587", "plc", "s3cret", "pump3@plant.example", "operator@plant.example", "report.csv" },
  })
end

test("mails the report with its table, and ends", function()
  local program = start()
  program:run_until(function() return program.status end, 10)
  test.equal(program.status, 0)
  test.equal(#program.mail.sent, 1)
  local mail = program.mail.sent[1]
  test.equal(mail.recipients, { "operator@plant.example" })
  test.equal(mail.subject, "Daily report of pump station 3")
  test.contains(mail.text, "10 values, the highest")
  test.contains(mail.attachments[1], "report.csv")
end)

test("writes a table with a line for each value", function()
  local program = start()
  program:run(1)
  local lines = {}
  for line in io.lines(test.folder .. "/report.csv") do
    lines[#lines + 1] = line
  end
  test.equal(#lines, 11)
  test.equal(lines[1], "cycle;level in m\r")
end)

test("ends with status 1 if the server does not take the mail", function()
  local program = start()
  program.mail:refuse("operator@plant.example")
  program:run_until(function() return program.status end, 10)
  test.equal(program.status, 1)
  test.equal(program.mail.sent, {})
end)
