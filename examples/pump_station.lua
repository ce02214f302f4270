-- SPDX-License-Identifier: MIT
-- A pump station: alarms by SMS and e-mail; an operator asks and acknowledges by SMS.
--
--   corvane run pump_station.lua --modem 1=/dev/ttyUSB0 -- MAILSERVER PORT LOGIN PASSWORD SENDER RECIPIENT [stay]
--
-- It ends when its story has been told; with `stay` it goes on, so that it can be watched.
-- Every user of a machine can see a command line. Keep a real password in a file that only the program's
-- user may read: `corvane run --config FILE`, with a line `args = WORD` for each word.
--
-- How to read it, for those who know PLCs and not Lua:
--   local x = 5              a variable of this file
--   { a = 1, b = 2 }         a table: a structure with the fields a and b
--   function f(x) ... end    a function; cycle() at the end is the one that runs in every PLC cycle
--   text .. text             joins two texts;  ~= means "not equal"
-- A block is created once, with X.new { inputs }. In every cycle the program sets its inputs, calls
-- it like a function, and reads its outputs. The program never waits: what takes several cycles is a state.

---------------------------------------------------------------------------------------------------
-- Settings

local limit = 400 -- cm; above it there is an alarm

-- Who may command the station: numbers as SMS_INBOX returns them, and names for our own messages.
local operators = {
  ["+15550101234"] = "Anna",
  ["+15550105678"] = "Boris",
}
-- Who gets the alarm.
local alarm_numbers = "+1 555 010-1234; +1 555 010-5678"

local alarm_text = "ТРЕВОГА! Насосная станция 3: уровень воды %d см, предел %d см. "
  .. "Насос 2 не работает. Ответьте ACK."

if #plc.args < 6 then
  error("required: MAILSERVER PORT LOGIN PASSWORD SENDER RECIPIENT (after --)", 0)
end
local stays = plc.args[7] == "stay"

---------------------------------------------------------------------------------------------------
-- The blocks

-- Messages are on the disk before these blocks report them: neither a power cut nor a restart loses one.
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
-- The alarm goes first. Its key makes it one of its kind: a station that restarts while the water is high
-- does not send it again within the hour.
local alarm_sms = SMS_OUTBOX.new { Port = 1, Receiver = alarm_numbers, Urgent = true, Key = "level", ValidFor = 3600 }
local answer_sms = SMS_OUTBOX.new { Port = 1, ValidFor = 600 } -- after ten minutes nobody wants the answer
-- A mail server on this machine needs no TLS.
local is_local = plc.args[1] == "127.0.0.1" or plc.args[1] == "localhost"
local alarm_mail = MAIL_OUTBOX.new {
  Server = plc.args[1],
  Port = tonumber(plc.args[2]),
  Security = is_local and "none" or "starttls",
  User = plc.args[3],
  Password = plc.args[4],
  From = "Pump station 3 <" .. plc.args[5] .. ">",
  To = plc.args[6],
  Subject = "Pump station 3: alarm",
  Attachments = "levels.csv",
  Key = "level",
  ValidFor = 3600,
}
-- The state of the machine itself. The command contains only our own text, nothing from an SMS.
-- The cycle waits for it; if a disk hangs, `timeout` ends it.
local machine = SysProcessCreateWithResult.new {
  Command = "cut -d. -f1 /proc/uptime;",
  Args = "timeout 2 df --output=pcent / | tail -n 1",
}
-- What happens when an operator has acknowledged.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
local start_pump = SysProcessCreate.new { Command = "'" .. here:gsub("'", "'\\''") .. "start_pump.sh'", Args = "2" }

---------------------------------------------------------------------------------------------------
-- What the station does

local function say(text, ...)
  print(string.format(text, ...))
end

-- The process. There is no sensor here: the water rises by itself, and falls when pump 2 runs.
local station = { level = 350, pump_2 = false, alarm = "none" } -- alarm: none, active, acknowledged
local levels = {} -- the lines of the report: one per second, of the last hour

local function process()
  if station.alarm == "over" then -- from now on pump 2 keeps the level between 350 and 380 cm
    station.pump_2 = station.level > (station.pump_2 and 350 or 380)
  end
  station.level = station.level + (station.pump_2 and -1.5 or 1)
  if plc.cycle % 10 == 1 then
    levels[#levels + 1] = string.format("%.1f;%d", plc.cycle / 10, station.level)
    if #levels > 3600 then
      table.remove(levels, 1)
    end
  end
end

---------------------------------------------------------------------------------------------------
-- Sending SMS: a rising edge of Execute hands a message over, and Done or Error reports how it ended

local sms_sent = 0

-- True once, when the block has finished with its message.
local function has_ended(block, what)
  if not block.Execute or not (block.Done or block.Error) then
    return false
  end
  block.Execute = false
  sms_sent = sms_sent + block.Sent
  if block.ErrorText ~= "" then
    say("%s: %s", what, block.ErrorText)
  end
  return true
end

local alarm_stored = false

local function send_alarm(text)
  alarm_sms.Text = text
  alarm_sms.Execute = true
  alarm_stored = false
end

local answers = {} -- { number, text }; the first one is being sent

local function send_messages()
  -- The next edge comes after a call with Execute FALSE, which also clears Done and Error.
  if answers[1] and not (answer_sms.Execute or answer_sms.Done or answer_sms.Error) then
    answer_sms.Receiver, answer_sms.Text = answers[1].number, answers[1].text
    answer_sms.Execute = true
  end
  alarm_sms()
  answer_sms()
  if alarm_sms.Stored and not alarm_stored then
    alarm_stored = true
    say("the alarm is stored: it goes out, whatever happens now")
  end
  if has_ended(alarm_sms, "alarm") and alarm_sms.Sent == 0 and not alarm_sms.Error then
    say("this alarm was queued before the restart: it is not sent again")
  end
  if has_ended(answer_sms, "answer") then
    table.remove(answers, 1)
  end
end

---------------------------------------------------------------------------------------------------
-- Sending e-mail

local mails_sent = 0

local function write_report()
  local file = assert(io.open("levels.csv", "w"))
  file:write("second;level in cm\n", table.concat(levels, "\n"), "\n")
  file:close()
end

local function mail_alarm(text)
  write_report()
  alarm_mail.Text = text
  alarm_mail.Execute = true
end

-- As with SMS. Without a network the mail waits on the disk, and nothing else waits for it.
local function send_mail()
  alarm_mail()
  if not alarm_mail.Execute or not (alarm_mail.Done or alarm_mail.Error) then
    return
  end
  alarm_mail.Execute = false
  if alarm_mail.Done then
    mails_sent = mails_sent + 1
  end
  if alarm_mail.ErrorText ~= "" then
    say("e-mail: %s", alarm_mail.ErrorText)
  end
end

---------------------------------------------------------------------------------------------------
-- Receiving SMS

local refused = 0
local asked = {} -- numbers to be answered with the state of the machine

-- A number can be forged, so what answers may cost is limited: a fixed number of them per hour.
local answers_left, next_hour = 0, 0

local function answer(number, text)
  if plc.clock() >= next_hour then
    answers_left, next_hour = 20, plc.clock() + 3600
  end
  if answers_left == 0 then
    say("no answer to %s: the limit for this hour is reached", number)
    return
  end
  answers_left = answers_left - 1
  answers[#answers + 1] = { number = number, text = text }
end

-- A text from a phone is data: it is compared with the words that we know, and never becomes part of a
-- command. ACK can do no harm, whoever sends it; a command that could do harm would need a code word.
local function handle(number, text)
  local word = text:upper()
  local name = operators[number]
  if not name then
    refused = refused + 1
    say("refused: a message from the unknown number %s", (number:gsub("%c", "?"))) -- it may be a name
  elseif word == "STATUS" then
    say("%s asks for the status", name)
    asked[#asked + 1] = number
  elseif word == "ACK" and station.alarm == "active" then
    say("%s has acknowledged the alarm: pump 2 is started", name)
    station.alarm = "acknowledged"
    station.pump_2 = true
    start_pump.Run = true
    answer(number, "Thank you. Pump 2 is started.")
  else
    say("%s wrote something that is not a command", name)
    answer(number, "Commands: STATUS, ACK")
  end
end

local function receive_messages()
  inbox()
  -- Accept confirms that our work with this message is done. If the power fails before, it is offered again.
  inbox.Accept = inbox.Ready and not inbox.Accept
  if inbox.Accept then
    handle(inbox.From, inbox.Text)
  end
end

local function answer_questions()
  machine.Run = #asked > 0
  machine()
  if machine.Run then
    local seconds, disk = machine.Output:match("^(%d+)%s+(%S+)")
    local state = string.format("Level %d/%d cm, alarm %s, disk %s full, up %d min",
      station.level, limit, station.alarm, disk or "?", (seconds or 0) / 60)
    for _, number in ipairs(asked) do
      answer(number, state)
    end
    asked = {}
  end
end

---------------------------------------------------------------------------------------------------
-- The cycle

local function watch_level()
  if station.level > limit and station.alarm == "none" then -- a rising edge: one alarm
    station.alarm = "active"
    say("ALARM: %d cm, the limit is %d cm", station.level, limit)
    send_alarm(alarm_text:format(station.level, limit))
    mail_alarm(string.format("The water level is %d cm, the limit is %d cm. Pump 2 is not running.", station.level, limit))
  elseif station.level < limit - 10 and station.alarm == "acknowledged" then
    station.alarm = "over"
    say("the alarm is over: %d cm", station.level)
  end
end

local has_ended_well = false

function cycle()
  start_pump.Run = false

  process()
  receive_messages()
  answer_questions()
  watch_level()
  send_messages()
  send_mail()
  start_pump()

  local is_idle = not alarm_sms.Execute and #answers == 0 and not alarm_mail.Execute
  if station.alarm == "over" and is_idle and not has_ended_well then
    has_ended_well = true
    say("%d SMS and %d e-mail sent, %d message refused, nothing lost", sms_sent, mails_sent, refused)
    if not stays then
      plc.stop()
    end
  end
end
