-- SPDX-License-Identifier: MIT
-- Mails a report of the day every morning at 06:30, local time, through a relay on the controller.
--
--   corvane run daily_report.lua -- LOGIN PASSWORD

local level = 240 -- cm; stands for a measurement

local mail = MAIL_OUTBOX.new {
  Server = "127.0.0.1",
  Security = "none",
  User = plc.args[1],
  Password = plc.args[2],
  From = "Pump station 3 <pump3@plant.example>",
  To = "operator@plant.example",
  Subject = "Pump station 3: daily report",
}
-- Retained, it remembers what it has fired: a restart at 06:31 sends no second report, and one that was due
-- while the program was not running is made up for within an hour.
local morning = plc.retain("morning", SCHEDULE.new { At = "06:30", Enable = true })

local day = plc.retain("day", { count = 0, lowest = 0, highest = 0 })
-- What the outbox has not stored yet. From then on it is its own; the key keeps a report that was stored just
-- before a power cut from going out twice.
local report = plc.retain("report", { text = "", day = "" })

local function measure()
  if day.count == 0 then
    day.lowest, day.highest = level, level
  end
  day.count = day.count + 1
  day.lowest, day.highest = math.min(day.lowest, level), math.max(day.highest, level)
end

local function send()
  mail.Execute = report.text ~= ""
  mail.Text, mail.Key = report.text, report.day
  mail()
  if mail.Error then
    plc.log("the report: " .. mail.ErrorText)
  end
  if mail.Stored or mail.Done or mail.Error then
    report.text = ""
  end
end

function cycle()
  measure()
  morning()
  if morning.Q then
    report.text = string.format("%d values, from %d to %d cm", day.count, day.lowest, day.highest)
    report.day = os.date("%Y-%m-%d", plc.now)
    day.count = 0
  end
  send()
end
