-- SPDX-License-Identifier: MIT
-- Counts to three with the block of the add-in counter_addin.so.
local counter = COUNTER.new { PV = 3 }

function cycle()
  counter.CU = plc.cycle % 2 == 1 -- a rising edge in every second cycle
  counter()
  print(plc.cycle, counter.CV, counter.Q)
  if counter.Q then plc.stop() end
end
