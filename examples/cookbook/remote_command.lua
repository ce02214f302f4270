-- SPDX-License-Identifier: MIT
-- Commands by SMS: only from known numbers, and only with the code: "PUMP ON 4711", "PUMP OFF 4711", "STATUS".
--
--   corvane run remote_command.lua --modem 1=/dev/ttyUSB0 -- CODE

local code = plc.args[1] or error("required: CODE (after --)", 0)
local operators = { ["+15550101234"] = "Anna", ["+15550105678"] = "Boris" }
local allowed_errors = 3 -- wrong codes of one number, then it is ignored until the program is restarted

local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local answer = SMS_OUTBOX.new { Port = 1, ValidFor = 600 }
local plant = plc.retain("plant", { pump = false })
local errors = {} -- wrong codes of each number

local answers = {} -- { number, text }; the first one is being sent

local function reply(number, text)
  answers[#answers + 1] = { number = number, text = text }
end

local function switch(number, name, word, given)
  if (errors[number] or 0) >= allowed_errors then
    plc.log(name .. " is locked out: too many wrong codes")
  elseif given ~= code then
    errors[number] = (errors[number] or 0) + 1
    plc.log(name .. " sent a wrong code")
    reply(number, "Wrong code.")
  else
    errors[number] = 0
    plant.pump = word == "ON"
    plc.log(name .. " has switched the pump " .. word)
    reply(number, "The pump is " .. word .. ".")
  end
end

-- A number can be forged, so only what does no harm works without the code. The text is compared with the words
-- that we know, and never becomes part of a shell command.
local function handle(number, text)
  local name = operators[number]
  if not name then
    plc.log("ignored: a message from an unknown number")
    return
  end
  local word, given = text:upper():match("^%s*PUMP%s+(O[NF]F?)%s+(%w+)%s*$")
  if word == "ON" or word == "OFF" then
    switch(number, name, word, given)
  elseif text:upper():match("^%s*STATUS%s*$") then
    reply(number, "The pump is " .. (plant.pump and "ON" or "OFF") .. ".")
  else
    reply(number, "Commands: STATUS, PUMP ON CODE, PUMP OFF CODE")
  end
end

function cycle()
  inbox()
  inbox.Accept = inbox.Ready and not inbox.Accept
  if inbox.Accept then
    handle(inbox.From, inbox.Text)
  end
  if answers[1] and not (answer.Busy or answer.Execute) then
    answer.Receiver, answer.Text = answers[1].number, answers[1].text
    answer.Execute = true
    table.remove(answers, 1)
  elseif not answer.Busy then
    answer.Execute = false
  end
  answer()
end
