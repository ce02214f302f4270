-- SPDX-License-Identifier: MIT
-- Asks a service every minute whether it answers; restarts it after three failures in a row, and calls for help
-- if that does not work.
--
--   corvane run service_watchdog.lua --modem 1=/dev/ttyUSB0

local allowed_failures = 3

-- PROCESS never holds up the cycle, and ends what takes too long.
local check = PROCESS.new { Program = "curl", Arguments = "-sfo\n/dev/null\nhttp://127.0.0.1:8080/health",
  Timeout = 10 }
local restart = PROCESS.new { Program = "systemctl", Arguments = "restart\nhistorian.service", Timeout = 60 }
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "The historian does not come back.",
  Key = "historian", ValidFor = 14400 }
local pause = TON.new { PT = 60 }

local failures = 0 -- in a row
local restarts = 0 -- since it last answered

local function judge(good)
  if good then
    failures, restarts = 0, 0
    return
  end
  failures = failures + 1
  if failures < allowed_failures then return end
  failures = 0
  restarts = restarts + 1
  plc.log("the historian does not answer; restart number " .. restarts)
  restart.Execute = true
  sms.Execute = restarts > 1
end

function cycle()
  sms.Execute = sms.Busy
  restart.Execute = restart.Busy
  pause.IN = not (check.Busy or pause.Q)
  pause()

  check.Execute = pause.Q or check.Busy
  check()
  if check.Done or check.Error then
    judge(check.Done and check.ExitCode == 0)
  end
  restart()
  if restart.Error then
    plc.log("the restart has failed: " .. restart.ErrorText)
  end
  sms()
end
