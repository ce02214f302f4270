-- SPDX-License-Identifier: MIT
-- Mails a report of the day every morning at 06:30, local time, through a relay on the controller.
--
--   corvane run daily_report.lua -- LOGIN PASSWORD

local level = 240 -- cm; stands for a measurement

local mail = SEND_EMAIL.new {
  Server = "127.0.0.1",
  Port = 25,
  Login = plc.args[1],
  Password = plc.args[2],
  SenderName = "Pump station 3",
  SenderMail = "pump3@plant.example",
  Recipient = "operator@plant.example",
}
-- Retained, it remembers what it has fired: a restart at 06:31 sends no second report, and one that was due
-- while the program was not running is made up for within an hour.
local morning = plc.retain("morning", SCHEDULE.new { At = "06:30", Enable = true })

local day = plc.retain("day", { count = 0, lowest = 0, highest = 0 })
local report = plc.retain("report", { text = "" }) -- what is still to be sent
local next_try = 0

local function measure()
  if day.count == 0 then
    day.lowest, day.highest = level, level
  end
  day.count = day.count + 1
  day.lowest, day.highest = math.min(day.lowest, level), math.max(day.highest, level)
end

local function send()
  mail.Send = false
  if report.text ~= "" and plc.clock() >= next_try then
    mail.Subject, mail.Message = "Pump station 3: daily report", report.text
    mail.Send = true
    next_try = math.huge
  end
  mail()
  if mail.Sent and mail.Code == 0 then
    report.text = ""
    next_try = 0
  elseif mail.Sent then
    plc.log("the report was not sent, code " .. mail.Code .. "; again in 15 minutes")
    next_try = plc.clock() + 900
  end
end

function cycle()
  measure()
  morning()
  if morning.Q then
    report.text = string.format("%d values, from %d to %d cm", day.count, day.lowest, day.highest)
    day.count = 0
  end
  send()
end
