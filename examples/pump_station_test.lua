-- SPDX-License-Identifier: MIT
-- corvane test pump_station_test.lua

local ANNA, BORIS, STRANGER = "+15550101234", "+15550105678", "+15559998877"

local function start(...)
  local program = test.load("pump_station.lua", {
    args = { "mail.example", "25", "plc", "s3cret", "pump3@plant.example", "operator@plant.example", ... },
  })
  program.processes:answer("df --output=pcent", { output = "7200\n 42%\n" })
  return program
end

-- The water is just below the limit, and rises.
local function start_with_high_water(...)
  local program = start(...)
  program.vars.station.level = 399
  program:run(1)
  return program
end

local function texts_to(program, number)
  local texts = {}
  for _, sms in ipairs(program.modem.sent) do
    if sms.to == number then texts[#texts + 1] = sms.text end
  end
  return texts
end

test("alarms both operators, and by e-mail", function()
  local program = start_with_high_water()
  program:run(2)
  test.equal(program.vars.station.alarm, "active")
  test.equal(#texts_to(program, ANNA), 1)
  test.equal(#texts_to(program, BORIS), 1)
  test.equal(program.modem.sent[1].urgent, true)
  test.contains(program.modem.sent[1].text, "401")
  test.equal(#program.mail.sent, 1)
  test.contains(program.mail.sent[1].subject, "alarm")
end)

test("is silent below the limit", function()
  local program = start()
  program:run(2)
  test.equal(program.vars.station.alarm, "none")
  test.equal(program.modem.sent, {})
  test.equal(program.mail.sent, {})
end)

test("does not send the alarm again after a restart", function()
  local program = start_with_high_water()
  program:run(2)
  test.equal(#program.modem.sent, 2)
  program:restart { off = 10 }
  program:run(5)
  test.equal(program.vars.station.alarm, "active") -- it is retained
  test.equal(#program.modem.sent, 2)
  test.equal(#program.mail.sent, 1)
end)

test("does not send the alarm again if the restart came before its state was kept", function()
  local program = start_with_high_water()
  program:run(2)
  program:restart { off = 10 }
  program.vars.station.alarm = "none"
  program:run(5)
  test.equal(#program.modem.sent, 2)
  test.equal(#program.mail.sent, 1)
  test.contains(program.output, "it is not sent again")
end)

test("sends the alarm when the network is there again", function()
  local program = start()
  program.modem.network = false
  program.vars.station.level = 399
  program:run(10)
  test.equal(program.modem.sent, {})
  test.contains(program.output, "the alarm is stored")
  program.modem.network = true
  program:run(60)
  test.equal(#program.modem.sent, 2)
end)

test("starts pump 2 when an operator acknowledges", function()
  local program = start_with_high_water()
  program.modem:receive(ANNA, "ack")
  program:run(1)
  test.equal(program.vars.station.pump_2, true)
  test.equal(program.vars.station.alarm, "acknowledged")
  local started = program.processes.started
  test.contains(started[#started].command, "start_pump.sh 2")
  local texts = texts_to(program, ANNA)
  test.equal(texts[#texts], "Thank you. Pump 2 is started.")
end)

test("switches pump 2 on again after a restart", function()
  local program = start_with_high_water()
  program.modem:receive(ANNA, "ACK")
  program:run(1)
  local before = #program.processes.started
  program:restart { off = 10 }
  program:run(1)
  test.equal(#program.processes.started, before + 1)
end)

test("says so if pump 2 cannot be started", function()
  local program = start_with_high_water()
  program.processes:answer("start_pump.sh", { not_started = "permission denied" })
  program.modem:receive(ANNA, "ACK")
  program:run(1)
  test.contains(program.output, "permission denied")
end)

test("answers a question about its state", function()
  local program = start()
  program.modem:receive(BORIS, "Status")
  program:run(2)
  test.equal(#texts_to(program, BORIS), 1)
  test.contains(texts_to(program, BORIS)[1], "alarm none, disk 42% full, up 120 min")
end)

test("ignores strangers", function()
  local program = start_with_high_water()
  program.modem:receive(STRANGER, "ACK")
  program:run(2)
  test.equal(program.vars.station.pump_2, false)
  test.equal(texts_to(program, STRANGER), {})
  test.contains(program.output, "refused: a message from the unknown number " .. STRANGER)
end)

test("accepts a message only when its answer is on the disk", function()
  local program = start()
  program.vars.station.level = 300 -- no alarm today
  program.processes:answer("df --output=pcent", { output = "7200\n 42%\n", duration = 2 })
  program.modem:receive(ANNA, "STATUS")
  program:run(1)
  program:restart { off = 1 }
  program:run(5)
  test.equal(#texts_to(program, ANNA), 1)
  test.contains(texts_to(program, ANNA)[1], "disk 42% full")
end)

test("answers at most 20 times in an hour", function()
  local program = start()
  program.vars.limit = 1e9 -- no alarm today
  for _ = 1, 25 do
    program.modem:receive(ANNA, "hello")
  end
  program:run(60)
  test.equal(#texts_to(program, ANNA), 20)
end)

test("ends when the alarm is over and everything is sent", function()
  local program = start_with_high_water()
  program.modem:receive(ANNA, "ACK")
  program:run_until(function() return program.status end, 60)
  test.equal(program.status, 0)
  test.equal(#program.modem.sent, 3)
  test.equal(#program.mail.sent, 1)
end)

test("does not end while the mail server is away", function()
  local program = start()
  program.mail.away = true
  program.vars.station.level = 399
  program:run(1)
  program.modem:receive(ANNA, "ACK")
  program:run(30)
  test.equal(program.vars.station.alarm, "over")
  test.equal(program.status, nil)
  program.mail.away = false
  program:run_until(function() return program.status end, 120)
  test.equal(#program.mail.sent, 1)
end)

test("goes on if it is to stay, with the level below the limit", function()
  local program = start_with_high_water("stay")
  program.modem:receive(ANNA, "ACK")
  program:run_until(function() return program.vars.station.alarm == "over" end, 60)
  for _ = 1, 60 do
    program:run(10)
    test.equal(program.vars.station.level > 340 and program.vars.station.level < 400, true)
  end
  test.equal(program.status, nil)
  test.equal(#program.mail.sent, 1)
end)

test("says what is missing on its command line", function()
  test.fails(function() test.load("pump_station.lua") end, "required: MAILSERVER PORT")
end)
