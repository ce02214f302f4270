-- SPDX-License-Identifier: MIT
-- Starts a job of the add-in countdown_addin.so, and waits for its end without stopping the cycle.
local countdown = COUNTDOWN.new { Calls = 3 }

function cycle()
  countdown.Execute = true
  countdown()
  print(plc.cycle, countdown.Busy, countdown.Done, countdown.Left)
  if countdown.Error then error(countdown.ErrorText) end
  if countdown.Done then plc.stop() end
end
