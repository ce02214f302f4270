-- SPDX-License-Identifier: MIT
-- A pump station mails its report: measured values as an attached table, a summary as the text.
--
--   ./run mail_report            with a local mail server that prints what arrives
--   corvane run mail_report.lua -- SERVER PORT LOGIN PASSWORD SENDER RECIPIENT REPORT_FILE
--
-- Every user of a machine can see a command line. Keep a real password in a file that only the program's
-- user may read: `corvane run --config FILE`, with a line `args = WORD` for each word.
--
-- It ends when the mail server has accepted the message, or with status 1 if sending failed.

local server, port, login, password, sender, recipient, report = table.unpack(plc.args)
if not report then
    error("required: SERVER PORT LOGIN PASSWORD SENDER RECIPIENT REPORT_FILE", 0)
end

local mail = SEND_EMAIL.new({
    Server = server,
    Port = tonumber(port),
    Login = login,
    Password = password,
    SenderName = "Pump station 3",      -- without it the receiver sees a placeholder as the sender
    SenderMail = sender,
    Recipient = recipient,              -- several: "one@plant.example; two@plant.example"
    Attachment = report,
})

-- Ten cycles of measuring; a real station would read its inputs here.
local levels = {}

local function measure()
    levels[#levels + 1] = 2.4 + 0.1 * math.sin(plc.cycle)
end

local function write_report()
    local file = assert(io.open(report, "w"))
    file:write("cycle;level in m\r\n")
    for cycle, level in ipairs(levels) do
        file:write(string.format("%d;%.3f\r\n", cycle, level))
    end
    file:close()
end

local function summary()
    local highest = math.max(table.unpack(levels))
    return string.format("%d values, the highest %.3f m.\r\nThe table is attached.",
                         #levels, highest)
end

function cycle()
    if #levels < 10 then
        measure()
        if #levels == 10 then
            write_report()
            mail.Subject = "Daily report of pump station 3"
            mail.Message = summary()
            mail.Send = true            -- the rising edge queues the message
        end
    end

    mail()                              -- waits while the message is being sent to the server

    if mail.ErrStr ~= "" then           -- the message could not even be composed
        plc.log("report not sent: " .. mail.ErrStr)
        plc.stop(1)
    elseif mail.Sent then               -- TRUE for one call, when the outcome is known
        print("report sent, code " .. mail.Code)
        plc.stop(mail.Code == 0 and 0 or 1)
    end
end
