-- SPDX-License-Identifier: MIT
-- A sign of life by SMS every day at 08:00. Neither a restart nor a power cut repeats it.
--
--   corvane run heartbeat.lua --modem 1=/dev/ttyUSB0

-- Retained, it makes up for a time that passed while the program was not running, for an hour.
local daily = plc.retain("daily", SCHEDULE.new { At = "08:00", Enable = true })
-- With its key it is one of its kind: whatever happens, no second one goes out within 20 hours.
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "Pump station 3 is alive.",
  Key = "heartbeat", ValidFor = 72000 }

function cycle()
  daily()
  sms.Execute = daily.Q or sms.Busy
  sms()
  if sms.Error then
    plc.log("no heartbeat: " .. sms.ErrorText)
  end
end
