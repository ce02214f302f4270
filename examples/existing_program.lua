-- SPDX-License-Identifier: MIT
-- A program that exists: answers DISK by SMS, and mails a note about it. It keeps the five blocks.
--
--   corvane run existing_program.lua --modem 1=/dev/ttyUSB0,patience=60s -- MAILSERVER PORT LOGIN PASSWORD [QUESTIONS]
--
-- Why it keeps them: it has run for years, it has been accepted with the plant, and it depends on what these blocks
-- do to the letter, such as Number without a plus sign and Complete for one call. They will stay as they are. What it
-- does not get in return: a message that waits is lost when the power fails, and the cycle stops while the mail
-- server thinks. A new program uses SMS_INBOX, SMS_OUTBOX, MAIL_OUTBOX and PROCESS; docs/which_block.md compares them.
-- QUESTIONS: how many to answer before it ends (default: 1); 0: run until stopped.

if #plc.args < 4 then
  error("required: MAILSERVER PORT LOGIN PASSWORD (after --)", 0)
end
local questions = tonumber(plc.args[5] or 1)

local inbox = READ_SMS.new { Port = 1, Read = true }
local answer = SEND_SMS.new { Port = 1 }
local note = SEND_EMAIL.new {
  Server = plc.args[1],
  Port = tonumber(plc.args[2]),
  Login = plc.args[3],
  Password = plc.args[4],
  SenderName = "Pump station 3",
  SenderMail = "pump3@plant.example",
  Recipient = "operator@plant.example",
  Subject = "Somebody has asked",
}
-- The cycle waits for this command, so it must be one that answers at once.
local disk = SysProcessCreateWithResult.new { Command = "timeout 2 df -P /", Args = "| awk 'END { print $5 }'" }
-- This one runs in the background.
local lamp = SysProcessCreate.new { Command = "echo", Args = "the lamp is on" }

local answered = 0
local mail_is_open = false -- its outcome is not known

function cycle()
  inbox()
  local is_question = inbox.Complete and inbox.Message:upper():gsub("%z+$", "") == "DISK"

  disk.Run = is_question
  disk()
  if is_question then
    answer.Receiver = inbox.Number:gsub("%D", "") -- digits only
    answer.Message = "The disk is " .. disk.Output:gsub("%s", "") .. " full"
    note.Message = inbox.Number .. " has asked, and got: " .. answer.Message
    answered = answered + 1
    mail_is_open = true
  end

  -- Each block acts on the rising edge of its input.
  answer.Send = is_question
  answer()
  note.Send = is_question
  note()
  lamp.Run = is_question
  lamp()

  if note.Sent or note.ErrStr ~= "" then
    mail_is_open = false
    print(note.Sent and "e-mail: code " .. note.Code or note.ErrStr)
  end
  -- A message handed over in this cycle is counted in Queue from the next cycle on.
  local is_idle = not answer.Send and answer.State == 1 and answer.Queue == 0 and not mail_is_open
  if questions > 0 and answered >= questions and is_idle then
    print("Done: " .. answered .. " questions answered.")
    plc.stop()
  end
end
