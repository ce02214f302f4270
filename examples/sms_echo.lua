-- SPDX-License-Identifier: MIT
-- Answers each text message with its own text.
--
--   corvane run sms_echo.lua --modem 1=/dev/ttyUSB0,patience=60s -- [MESSAGES]
--
-- MESSAGES: how many to answer before the program ends (default: 3, as many as sms_echo.scenario has);
-- 0: run until stopped. `./run sms_echo` runs it with a simulated modem. It answers anybody, so it is
-- only for trying things out: each answer costs money, and two such programs would never stop.

local messages = tonumber(plc.args[1] or 3)
if not messages then
  error("MESSAGES must be a number", 0)
end

local PORT = 1
local reader = READ_SMS.new { Port = PORT, Read = true }
local sender = SEND_SMS.new { Port = PORT }

local answered = 0
local last_error = 0

-- A stranger's text for the terminal, without control characters, which could do anything there.
local function shown(text)
  return (text:gsub("%c", "?"):gsub("\194[\128-\159]", "?"))
end

-- Reports an error once, not in every cycle.
local function report()
  local code = sender.Error ~= 0 and sender.Error or reader.Error
  if code ~= 0 and code ~= last_error then
    plc.log("error " .. code .. " on the modem port; docs/modem.md explains the numbers")
  end
  last_error = code
end

function cycle()
  reader()
  sender.Send = reader.Complete
  if reader.Complete then
    print(shown(reader.Number .. " wrote: " .. reader.Message))
    -- SEND_SMS accepts digits only.
    sender.Receiver = reader.Number:gsub("%D", "")
    sender.Message = reader.Message
    answered = answered + 1
  end
  sender()
  report()

  -- A message handed over in this cycle is counted in Queue from the next cycle on.
  local idle = not sender.Send and sender.State == 1 and sender.Queue == 0
  if messages > 0 and answered >= messages and idle then
    print("Done: " .. answered .. " messages answered.")
    plc.stop()
  end
end
