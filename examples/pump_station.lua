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

local alarm_text = "ТРЕВОГА! Насосная станция 3: вода %d см, предел %d см. Ответ: ACK."

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
local alarm_sms = SMS_OUTBOX.new {
  Port = 1, Receiver = alarm_numbers, Urgent = true, Report = true, Key = "level", ValidFor = 3600,
}
local answer_sms = SMS_OUTBOX.new { Port = 1, Report = true, ValidFor = 600 } -- after ten minutes nobody wants the answer
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
local machine = PROCESS.new { Command = "cut -d. -f1 /proc/uptime; df --output=pcent / | tail -n 1", Timeout = 5 }
-- What happens when an operator has acknowledged.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
local start_pump = PROCESS.new { Program = here .. "start_pump.sh", Arguments = "2", Timeout = 10 }

---------------------------------------------------------------------------------------------------
-- What the station does

local function say(text, ...)
  print(string.format(text, ...))
end

-- What must survive a restart. alarm: none, active, acknowledged, over
local station = plc.retain("station", { level = 370, pump_2 = false, alarm = "none" })
say("the station starts: %d cm, alarm %s", station.level, station.alarm)
local levels = {} -- the lines of the report: one per second, of the last hour

-- The process. There is no sensor here: the water rises by itself, and falls when pump 2 runs.
local function process()
  if station.alarm == "over" then -- from now on pump 2 keeps the level between 350 and 380 cm
    station.pump_2 = station.level > (station.pump_2 and 350 or 380)
  end
  station.level = math.min(station.level + (station.pump_2 and -1.5 or 1), 420) -- there it overflows
  if plc.cycle % 10 == 1 then
    levels[#levels + 1] = string.format("%.1f;%d", plc.cycle / 10, station.level)
    if #levels > 3600 then
      table.remove(levels, 1)
    end
  end
end

local function run_start_pump()
  start_pump.Execute = station.alarm == "acknowledged" -- after a restart in this state, too
  local was_busy = start_pump.Busy
  start_pump()
  if was_busy and not start_pump.Busy then
    say("%s", start_pump.Done and start_pump.Output:gsub("\n$", "") or start_pump.ErrorText)
  end
end

---------------------------------------------------------------------------------------------------
-- The alarm: a rising edge of Execute hands a message over, and Done or Error reports how it ended

local alarm_stored = false

local function write_report()
  local file = assert(io.open("levels.csv", "w"))
  file:write("second;level in cm\n", table.concat(levels, "\n"), "\n")
  file:close()
end

local function raise_alarm()
  say("ALARM: %d cm, the limit is %d cm", station.level, limit)
  alarm_sms.Text = alarm_text:format(station.level, limit)
  alarm_sms.Execute = true
  alarm_stored = false
  write_report()
  alarm_mail.Text =
    string.format("The water level is %d cm, the limit is %d cm. Pump 2 is not running.", station.level, limit)
  alarm_mail.Execute = true
end

-- Execute falls when the block has finished with its message, so that the next alarm is an edge again.
local function call(block, what)
  block()
  if block.Execute and (block.Done or block.Error) then
    block.Execute = false
    if block.ErrorText ~= "" then
      say("%s: %s", what, block.ErrorText)
    end
    return true
  end
end

local function send_alarm()
  local has_ended = call(alarm_sms, "alarm")
  if alarm_sms.Stored and not alarm_stored then
    alarm_stored = true
    say("the alarm is stored: it goes out, whatever happens now")
  end
  if has_ended and alarm_sms.Sent == 0 and not alarm_sms.Error then
    say("this alarm was queued before the restart: it is not sent again")
  end
  call(alarm_mail, "e-mail") -- without a network it waits on the disk, and nothing else waits for it
end

---------------------------------------------------------------------------------------------------
-- Receiving and answering SMS

-- A number can be forged, so what answers may cost is limited: a fixed number of them per hour.
local answers_left, next_hour = 0, 0

-- The key belongs to the message that is answered: if the power fails before this message is accepted, it is
-- offered again after the restart, but not answered again.
local function answer(text)
  if plc.clock() >= next_hour then
    answers_left, next_hour = 20, plc.clock() + 3600
  end
  if answers_left == 0 then
    say("no answer to %s: the limit for this hour is reached", inbox.From)
    return
  end
  answers_left = answers_left - 1
  answer_sms.Receiver, answer_sms.Text, answer_sms.Key = inbox.From, text, "answer to " .. inbox.Id
  answer_sms.Execute = true
end

-- A text from a phone is data: it is compared with the words that we know, and never becomes part of a
-- command. ACK can do no harm, whoever sends it; a command that could do harm would need a code word.
local function handle(number, text)
  local word = text:upper()
  local name = operators[number]
  if not name then
    say("refused: a message from the unknown number %s", (number:gsub("%c", "?"))) -- it may be a name
  elseif word == "STATUS" then
    say("%s asks for the status", name)
    machine.Execute = true
  elseif word == "ACK" and (station.alarm == "active" or station.alarm == "acknowledged") then
    say("%s has acknowledged the alarm: pump 2 is started", name)
    station.alarm = "acknowledged"
    station.pump_2 = true
    answer("Thank you. Pump 2 is started.")
  else
    say("%s wrote something that is not a command", name)
    answer("Commands: STATUS, ACK")
  end
end

local function answer_question()
  machine()
  if machine.Execute and not machine.Busy then
    machine.Execute = false
    local seconds, disk = machine.Output:match("^(%d+)%s+(%S+)")
    answer(string.format("Level %d/%d cm, alarm %s, disk %s full, up %d min",
      station.level, limit, station.alarm, disk or "?", (seconds or 0) / 60))
  end
end

local handled -- the Id of the message that was handled last

-- Accept confirms that our work with this message is done: what follows from it is on the disk.
local function receive_messages()
  inbox()
  if inbox.Ready and inbox.Id ~= handled then
    handled = inbox.Id
    handle(inbox.From, inbox.Text)
  end
  answer_question()
  answer_sms()
  if answer_sms.Stored or not answer_sms.Busy then -- whatever becomes of it, the outbox does it
    answer_sms.Execute = false
  end
  inbox.Accept = inbox.Ready and not machine.Execute and not answer_sms.Execute
end

---------------------------------------------------------------------------------------------------
-- The cycle

local function watch_level()
  if station.level > limit and station.alarm == "none" then -- a rising edge: one alarm
    station.alarm = "active"
    raise_alarm()
  elseif station.level < limit - 10 and station.alarm == "acknowledged" then
    station.alarm = "over"
    say("the alarm is over: %d cm", station.level)
  end
end

function cycle()
  process()
  receive_messages()
  watch_level()
  send_alarm()
  run_start_pump()

  local is_idle = not inbox.Ready and alarm_sms.Waiting == 0 and alarm_mail.Waiting == 0
  if station.alarm == "over" and is_idle and not stays then
    say("no message waits")
    plc.stop()
  end
end
