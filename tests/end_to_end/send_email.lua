-- SPDX-License-Identifier: MIT
-- Sends one e-mail, with the inputs that its arguments give as Name=value, and prints the code.
local mail = SEND_EMAIL.new()
for _, word in ipairs(plc.args) do
    local name, value = word:match("^(%w+)=(.*)$")
    mail[name] = value
end
mail.Send = true

function cycle()
    mail()
    if mail.Sent then
        print("code " .. mail.Code)
        plc.stop()
    end
end
