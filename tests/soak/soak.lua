-- SPDX-License-Identifier: MIT
-- All five blocks at full speed, for soak.py, which reads what this program prints, and creates the
-- files "go", "finish" and "quit" in FOLDER. Arguments: FOLDER MAIL_PORT SEED
local folder, mail_port = plc.args[1], tonumber(plc.args[2])
math.randomseed(tonumber(plc.args[3]))

local RENEW_AFTER = 50 -- jobs of a block until a new one replaces it
local LONGEST_TURN = 500 -- cycles for which a sender leaves the modem to READ_SMS
local LONG_OUTPUT = 100000

local function requested(name)
  local file = io.open(folder .. "/" .. name)
  if file then file:close() end
  return file ~= nil
end

-- A block of this type, which is replaced after some jobs.
local function renewable(type, values)
  local self = { block = type.new(values), jobs = 0 }
  -- To be called while nothing else refers to the block.
  function self.renew_when_due()
    if self.jobs < RENEW_AFTER then return end
    self.block = nil
    collectgarbage() -- its destructor runs here
    self.block, self.jobs = type.new(values), 0
  end
  return self
end

local inbox = READ_SMS.new { Port = 1, Read = true }
local lists = 0 -- how often it has requested the list

local function receive()
  local before = inbox.State
  inbox()
  if inbox.State ~= before and inbox.State >= 33 then lists = lists + 1 end
  if inbox.Complete then
    print("got " .. inbox.Number .. " " .. inbox.Message:gsub("\0+$", ""))
  end
end

-- One message at a time, so that its outcome is certain: when the queue is empty again, Sent says
-- whether the modem has confirmed it. The receiver's number tells the messages apart.
local function sender(prefix, text_of)
  local sms = renewable(SEND_SMS, { Port = 1 })
  local messages, waiting_for = 0, nil
  local lists_before, next_turn = 0, 0
  local self = {}
  -- A message takes precedence over a pass that has only begun, so a sender that never rests would
  -- keep READ_SMS from its first list.
  local function has_turn() return lists ~= lists_before or plc.cycle >= next_turn end
  function self.idle() return waiting_for == nil end
  function self.registered() return sms.block.State ~= 0 end
  function self.step(may_start)
    sms.renew_when_due()
    local block = sms.block
    if waiting_for == nil and may_start and has_turn() then
      messages = messages + 1
      waiting_for = string.format("%s%07d", prefix, messages)
      block.Receiver, block.Message, block.Send = waiting_for, text_of(waiting_for), true
      block()
      return
    end
    block.Send = false
    block()
    if waiting_for and block.Queue == 0 then
      local outcome = block.Sent and "sent" or "dropped"
      print("sms " .. outcome .. " " .. waiting_for .. " " .. block.Error)
      waiting_for, lists_before, next_turn = nil, lists, plc.cycle + LONGEST_TURN
      sms.jobs = sms.jobs + 1
    end
  end
  return self
end

local senders = {
  sender("1555", function(number) return "Pump " .. number .. " is switched on" end),
  sender("1777", function(number) -- two parts
    return "Насос " .. number .. " остановлен: давление 9,1 бар, выше допустимого; "
      .. "задвижка закрыта."
  end),
}

local mail = renewable(SEND_EMAIL, {
  Server = "127.0.0.1", Port = mail_port, Password = "s3cret", SenderName = "Soak",
  SenderMail = "soak@plant.example", Recipient = "operator@plant.example",
})
local mails, mail_waits = 0, false

local function send_mail(may_start)
  mail.renew_when_due()
  local block = mail.block
  if not mail_waits and may_start then
    mails, mail_waits = mails + 1, true
    block.Login, block.Subject = "plc-" .. mails, "soak " .. mails
    block.Message = "Message " .. mails .. " of a long run."
    block.Attachment = mails % 60 == 0 and folder .. "/missing.bin"
      or mails % 10 == 0 and folder .. "/attachment.bin" or ""
    block.Send = true
    block()
    if block.ErrStr ~= "" then print("not queued: mail " .. mails .. " " .. block.ErrStr) end
    return
  end
  block.Send = false
  block()
  if mail_waits and block.Sent then
    print("mail " .. mails .. " " .. block.Code)
    mail_waits = false
    mail.jobs = mail.jobs + 1
  end
end

-- Background commands: each leaves its number in a file.
local starter = SysProcessCreate.new { Command = "echo" }
local starts = 0

local function start()
  starter.Run = plc.cycle % 6 == 0
  if starter.Run then
    starts = starts + 1
    starter.Args = starts .. " >> " .. folder .. "/started"
  end
  starter()
end

-- Commands with a result. If one cannot be started, the block raises an error, and another block
-- has to replace it.
local runner = SysProcessCreateWithResult.new()
local runs, refused, refusing = 0, 0, false
local next_victim = 0

local function run_command(command, args)
  runner.Run = false
  runner()
  runner.Command, runner.Args, runner.Run = command, args, true
  runs = runs + 1
  local ok, why = pcall(runner)
  if not ok then
    if not refusing then print("refused at " .. starts .. ": " .. why) end
    refused = refused + 1
    runner = SysProcessCreateWithResult.new()
  elseif refusing then
    print("accepted at " .. starts)
  end
  refusing = not ok
  return ok
end

local function check(what, is_right)
  if not is_right then
    local result = runner.Code .. " " .. runner.Output:sub(1, 99)
    print("wrong: " .. what .. " " .. runs .. ": " .. result)
  end
end

-- A command that waits until soak.py finds its process number and kills it.
local function run_victim()
  local name = folder .. "/victim." .. runs
  local command = "echo $$ > " .. name .. ".new && mv " .. name .. ".new " .. name
  if run_command(command, "&& exec sleep 60") then
    print("victim " .. (runs - 1) .. " " .. runner.Code)
  end
end

local function run()
  if plc.cycle % 2 == 0 then return end
  if plc.clock() >= next_victim then
    next_victim = plc.clock() + math.random(1, 4)
    run_victim()
  elseif runs % 50 == 0 then
    if run_command("head -c " .. LONG_OUTPUT .. " /dev/zero", "| tr '\\0' x") then
      check("long output", runner.Code == 0 and runner.Output == string.rep("x", LONG_OUTPUT))
    end
  elseif run_command("echo", "result " .. runs) then
    check("echo", runner.Code == 0 and runner.Output == "result " .. (runs - 1) .. "\n")
  end
end

local phase = "registering"
local phases = {}

function phases.registering()
  -- 33: the modem has answered the command that precedes the list.
  if inbox.State == 33 and senders[1].registered() and senders[2].registered() then
    print("ready")
    phase = "waiting"
  end
end

function phases.waiting()
  if requested("go") then phase = "working" end
end

function phases.working()
  if plc.cycle % 20 == 0 and not refusing and requested("finish") then phase = "finishing" end
end

function phases.finishing()
  if senders[1].idle() and senders[2].idle() and not mail_waits then
    collectgarbage()
    print(string.format("finished cycles=%d runs=%d refused=%d starts=%d mails=%d",
      plc.cycle, runs, refused, starts, mails))
    phase = "finished"
  end
end

function phases.finished()
  if plc.cycle % 20 == 0 and requested("quit") then plc.stop() end
end

function cycle()
  local working = phase == "working"
  receive()
  for _, each in ipairs(senders) do each.step(working) end
  send_mail(working)
  if working then
    start()
    run()
  end
  phases[phase]()
end
