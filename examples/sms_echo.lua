-- SPDX-License-Identifier: MIT
-- Answers each text message with its own text.
--
--   corvane run sms_echo.lua --modem 1=/dev/ttyUSB0 -- [MESSAGES]
--
-- MESSAGES: how many to answer before the program ends (default: 3, as many as sms_echo.scenario has);
-- 0: run until stopped. `./run sms_echo` runs it with a simulated modem. It answers anybody, so it is
-- only for trying things out: each answer costs money, and two such programs would never stop.

local messages = tonumber(plc.args[1] or 3)
if not messages then
  error("MESSAGES must be a number", 0)
end

local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local outbox = SMS_OUTBOX.new { Port = 1 }

local handled -- the Id of the message that was answered last
local answered = 0
local last_problem = ""

-- A stranger's text for the terminal, without control characters, which could do anything there.
local function shown(text)
  return (text:gsub("%c", "?"):gsub("\194[\128-\159]", "?"))
end

-- Says what is wrong once, not in every cycle.
local function report(problem)
  if problem ~= "" and problem ~= last_problem then
    plc.log(problem)
  end
  last_problem = problem
end

function cycle()
  inbox()
  if inbox.Ready and inbox.Id ~= handled then
    handled = inbox.Id
    print(shown(inbox.From .. " wrote: " .. inbox.Text))
    outbox.Receiver = inbox.From
    outbox.Text = inbox.Text
    -- After a power cut the message may be offered again; with a key of its own it is not answered again.
    outbox.Key = "answer to " .. inbox.Id
    outbox.Execute = true -- the rising edge hands the answer over
  end
  outbox()
  report(outbox.ErrorText ~= "" and outbox.ErrorText or inbox.ErrorText)

  -- When the answer is on the disk, it goes out whatever happens, and the message may go.
  local has_answer = outbox.Execute and (outbox.Stored or not outbox.Busy)
  inbox.Accept = has_answer
  if has_answer then
    outbox.Execute = false
    answered = answered + 1
  end

  if messages > 0 and answered >= messages and outbox.Waiting == 0 then
    print("Done: " .. answered .. " messages answered.")
    plc.stop()
  end
end
