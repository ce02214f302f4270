-- SPDX-License-Identifier: MIT
-- An alarm goes to the first person, and to the second one if the first does not acknowledge it in time.
--
--   corvane run escalation.lua --modem 1=/dev/ttyUSB0

local people = { "+15550101234", "+15550105678" } -- in the order in which they are called
local patience = 600 -- seconds until the next person is called
local alarm_active = false -- the plant sets it; here it stands for an input

local sms = SMS_OUTBOX.new { Port = 1, Urgent = true, ValidFor = 3600 }
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local waiting = TON.new { PT = patience }

-- What must survive a restart: otherwise the first person would be called again.
local state = plc.retain("escalation", { called = 0, acknowledged = "" })
plc.retain("waiting", waiting)

local function call_next()
  state.called = state.called + 1
  sms.Receiver = people[state.called]
  sms.Text = "ALARM: tank 2 is too full. Answer ACK."
  sms.Execute = true
end

local function is_known(number)
  for i = 1, state.called do
    if people[i] == number then return true end
  end
  return false
end

local function receive()
  inbox()
  inbox.Accept = inbox.Ready and not inbox.Accept
  if inbox.Accept and inbox.Text:upper() == "ACK" and is_known(inbox.From) then
    state.acknowledged = inbox.From
    plc.log("acknowledged by " .. inbox.From)
  end
end

function cycle()
  receive()
  if not alarm_active then
    state.called, state.acknowledged = 0, ""
  end
  sms.Execute = sms.Busy

  local open = alarm_active and state.acknowledged == ""
  if open and state.called == 0 then
    call_next()
  end
  waiting.IN = open and state.called < #people
  waiting()
  if waiting.Q then
    call_next()
    waiting.IN = false -- the time begins again for the next one
    waiting()
  end
  sms()
end
