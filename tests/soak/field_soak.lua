-- SPDX-License-Identifier: MIT
-- The blocks that keep what they are given: field_soak.py starts this program, kills it, and starts it again.
-- Each line that it prints is written at once, so the test has it even if the program is killed right after.
-- Arguments: FOLDER MAIL_PORT TLS_PORT MODBUS_PORT TIMES. In FOLDER: "resume", what the runs before have
-- left ("NAME next NUMBER", "NAME again NUMBER"), "finish" and "quit", once they are wanted.
local folder = plc.args[1]
local mail_port, tls_port, modbus_port = tonumber(plc.args[2]), tonumber(plc.args[3]), tonumber(plc.args[4])
io.stdout:setvbuf("line")

local PATIENCE = 2 -- seconds until the next order, while the last one is on its way
local MOST_WAITING = 12

local next_number, again = {}, {}
for line in io.lines(folder .. "/resume") do
  local name, what, number = line:match("^(%S+) (%S+) (%d+)$")
  again[name] = again[name] or {}
  if what == "next" then
    next_number[name] = tonumber(number)
  else
    table.insert(again[name], tonumber(number))
  end
end

local function requested(name)
  local file = io.open(folder .. "/" .. name)
  if file then file:close() end
  return file ~= nil
end

local function one_line(text) return (text:gsub("%c", " ")) end

-- The number of the next job; one that a run before could not see through comes first.
local function take_number(name)
  local number = table.remove(again[name] or {}, 1)
  if number then return number end
  number = next_number[name] or 1
  next_number[name] = number + 1
  return number
end

-- Gives a job block one job after the other. `is_over` says whether another one may follow already.
local function orderer(name, block, fill, pause, is_over)
  local number, stored, unstored, since = nil, false, false, 0
  local next_order = nil -- set by a call with Execute FALSE
  local function release() number, block.Execute, next_order = nil, false, nil end
  local function begin()
    number, stored, unstored, since = take_number(name), false, false, plc.clock()
    print("order " .. name .. " " .. number)
    fill(block, number)
    block.Execute = true
  end
  local function look()
    if not stored and is_over and block.Stored then
      stored = true
      print("stored " .. name .. " " .. number)
    end
    if is_over and block.ErrorId == 22 and not unstored then
      unstored = true
      print("unstored " .. name .. " " .. number .. " " .. one_line(block.ErrorText))
    end
    if block.Done or block.Error then
      print(string.format("end %s %d %s %d %s", name, number, block.Done and "done" or "error", block.ErrorId,
        one_line(block.ErrorText)))
      release()
    elseif is_over and stored and is_over(block, plc.clock() - since) then
      release()
    end
  end
  return function(working)
    if not number and working and next_order and plc.clock() >= next_order then begin() end
    block()
    if not number and not next_order then next_order = plc.clock() + pause end
    if number then look() end
  end
end

local function may_follow(block, seconds) return seconds > PATIENCE and block.Waiting < MOST_WAITING end

local function fill_sms(digit)
  return function(sms, number)
    local id = string.format("%d%06d", digit, number)
    sms.Receiver = "+1555" .. id .. (number % 7 == 0 and ";+1666" .. id or "")
    sms.Text = number % 3 == 0
        and "Насос " .. id .. " остановлен: давление 9,1 бар, выше допустимого; задвижка закрыта."
      or "Pump " .. id .. " is switched on"
    sms.Key = number % 2 == 0 and "order " .. id or ""
    sms.Report, sms.Urgent = number % 5 == 0, number % 4 == 0
  end
end

local function fill_mail(name)
  return function(mail, number)
    local id = name .. "-" .. number
    mail.From = "Pump station <from-" .. id .. "@plant.example>"
    mail.To = "op-" .. id .. "@plant.example" .. (number % 3 == 0 and "; chief-" .. id .. "@plant.example" or "")
    mail.Subject, mail.Text = "order " .. id, "Mail " .. id .. " of a long run."
    mail.Attachments = number % 10 == 0 and folder .. "/attachment.bin" or ""
    mail.Key = number % 2 == 0 and "order " .. id or ""
    mail.Urgent = number % 4 == 0
  end
end

local function mail_outbox(values)
  values.Server, values.Timeout = "127.0.0.1", 3
  return MAIL_OUTBOX.new(values)
end

local steps = {}
for digit = 1, 3 do
  table.insert(steps, orderer("sms" .. digit, SMS_OUTBOX.new { Port = 1 }, fill_sms(digit), 0.2, may_follow))
end
for name, values in pairs {
  plain = { Port = mail_port, Security = "none" },
  login = { Port = mail_port, Security = "none", User = "plc", Password = "s3cret" },
  tls = { Port = tls_port, Security = "tls", User = "plc", Password = "s3cret", CaFile = folder .. "/ca.pem" },
} do
  table.insert(steps, orderer(name, mail_outbox(values), fill_mail(name), 0.2, may_follow))
end
table.insert(steps, orderer("process", PROCESS.new(), function(process, number)
  process.Command = "echo " .. number .. " >> " .. folder .. "/started"
end, 0.1))
-- Each of these has to be ended by the block.
table.insert(steps, orderer("hung", PROCESS.new { Timeout = 0.3, Command = "sleep 100 & sleep 100" }, function() end, 1))
table.insert(steps, orderer("modbus",
  MODBUS_TCP.new { Server = "127.0.0.1", Port = modbus_port, Timeout = 1, Write = true },
  function(modbus, number) modbus.Values = math.floor(number / 65536) .. " " .. number % 65536 end, 0.1))

local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local accepted = nil

-- Works with a message for some cycles before it accepts it.
local function receive()
  inbox()
  if inbox.Accept then
    inbox.Accept = false
  elseif inbox.Ready and accepted ~= inbox.Id then
    print(string.format("got %d %d %s %s", inbox.Id, inbox.Kind, inbox.From, one_line(inbox.Text)))
    accepted = inbox.Id
  elseif inbox.Ready and math.random(3) == 1 then
    inbox.Accept = true
  end
end

-- The server counts the reads, so what is read never falls.
local reader = MODBUS_TCP.new {
  Server = "127.0.0.1", Port = modbus_port, Timeout = 1, Enable = true, Period = 0.05, Address = 1000, Format = "UDINT",
}
local last_read = 0

local function read()
  reader()
  if not reader.Valid then return end
  if reader.First < last_read then print("wrong: read " .. reader.First .. " after " .. last_read) end
  last_read = reader.First
end

-- The standard blocks, against what their inputs say.
local ton, tof, rise, fall = TON.new { PT = 0.2 }, TOF.new { PT = 0.2 }, R_TRIG.new(), F_TRIG.new()
local tp, rs, hysteresis = TP.new { PT = 0.1 }, RS.new(), HYSTERESIS.new { High = 30, Low = 10 }
local up, down, both, latch = CTU.new { PV = 1e9 }, CTD.new(), CTUD.new { PV = 1e9 }, SR.new()
local was, ups, downs, high = false, 0, 0, false

local function expect(what, is_right)
  if not is_right then print("wrong: " .. what .. " in cycle " .. plc.cycle) end
end

local function count()
  local now = math.floor(plc.cycle / 40) % 2 == 1
  ton.IN, tof.IN, rise.CLK, fall.CLK, up.CU = now, now, now, now, now
  both.CU, both.CD, latch.S1, latch.R = now, not now, now, not now
  tp.IN, down.CD, rs.S, rs.R1, hysteresis.IN = now, now, now, not now, plc.cycle % 40
  for _, block in ipairs { ton, tof, tp, rise, fall, up, down, both, latch, rs, hysteresis } do block() end
  ups, downs = ups + (now and not was and 1 or 0), downs + (not now and (was or plc.cycle == 1) and 1 or 0)
  expect("TON", ton.Q == (now and ton.ET >= ton.PT))
  expect("TOF", tof.Q == (now or tof.Q and tof.ET < tof.PT))
  expect("R_TRIG", rise.Q == (now and not was))
  expect("CTU", up.CV == ups)
  expect("CTUD " .. both.CV .. " " .. ups .. " " .. downs, both.CV == ups - downs or plc.cycle < 3)
  expect("CTD", down.CV == -ups)
  expect("TP", tp.Q == (tp.ET > 0 and tp.ET < tp.PT) or rise.Q)
  expect("SR", latch.Q1 == now)
  expect("RS", rs.Q1 == now)
  if plc.cycle % 40 > 30 then high = true elseif plc.cycle % 40 < 10 then high = false end
  expect("HYSTERESIS", hysteresis.Q == high)
  if plc.cycle > 1 then expect("F_TRIG", fall.Q == (was and not now)) end
  was = now
end

local kept = plc.retain("counters", { first = 0, second = 0 })
local schedule = plc.retain("schedule", SCHEDULE.new { At = plc.args[5], Enable = true })
expect("retained values, written in the middle of a cycle", kept.first == kept.second)
print("kept " .. kept.first)

local function keep()
  kept.first, kept.second = kept.first + 1, kept.second + 1
  if kept.first % 20 == 0 then print("count " .. kept.first) end
  schedule()
  if schedule.Q then print("fired " .. math.floor(plc.now)) end
end

local working, quit = true, false
print("ready")

function cycle()
  if plc.cycle % 20 == 0 then working, quit = not requested("finish"), requested("quit") end
  for _, step in ipairs(steps) do step(working) end
  receive()
  read()
  count()
  keep()
  if quit then plc.stop() end
end
