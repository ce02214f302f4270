-- SPDX-License-Identifier: MIT
-- A pump station mails its report: measured values as an attached table, a summary as the text.
--
--   ./run mail_report            with a local mail server that prints what arrives
--   corvane run mail_report.lua -- SERVER PORT LOGIN PASSWORD SENDER RECIPIENT REPORT_FILE
--
-- Every user of a machine can see a command line. Keep a real password in a file that only the program's
-- user may read: `corvane run --config FILE`, with a line `args = WORD` for each word.
--
-- It ends when the mail server has the message, or with status 1 if that cannot work. While the network is down
-- it waits: the message is on the disk, and goes out by itself, after a restart, too.

local server, port, login, password, sender, recipient, report = table.unpack(plc.args)
if not report then
    error("required: SERVER PORT LOGIN PASSWORD SENDER RECIPIENT REPORT_FILE", 0)
end

-- A server on this machine needs no TLS.
local is_local = server == "127.0.0.1" or server == "localhost"

local mail = MAIL_OUTBOX.new({
    Server = server,
    Port = tonumber(port),
    Security = is_local and "none" or "starttls",
    User = login,
    Password = password,
    From = "Pump station 3 <" .. sender .. ">",
    To = recipient,                     -- several: "one@plant.example; two@plant.example"
    Attachments = report,
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
    return string.format("%d values, the highest %.3f m.\nThe table is attached.",
                         #levels, highest)
end

function cycle()
    if #levels < 10 then
        measure()
        if #levels == 10 then
            write_report()
            mail.Subject = "Daily report of pump station 3"
            mail.Text = summary()
            mail.Execute = true         -- the rising edge queues the message
        end
    end

    mail()                              -- never waits

    if mail.Done then
        print("report sent")
        plc.stop()
    elseif mail.Error then              -- it cannot be sent as it is, or somebody must correct the login
        print(mail.ErrorText)
        plc.stop(1)
    end
end
