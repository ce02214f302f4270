-- SPDX-License-Identifier: MIT
-- Tries one block, and another for which this host has no modem.
local system = SysProcessCreateWithResult.new { Command = "uname", Run = true }
local inbox = READ_SMS.new { Port = 1, Read = true }

function cycle()
  system()
  inbox()
  io.write("this is ", system.Output)
  print("READ_SMS: State " .. inbox.State .. ", Error " .. inbox.Error)
end
