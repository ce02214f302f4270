// SPDX-License-Identifier: MIT
// What SEND_EMAIL logs besides the texts of the error catalogue. Every text is one line; whatever
// comes from outside is made printable, and login and password never appear. Pure functions, any
// thread.
#pragma once

#include <boost/shared_ptr.hpp>
#include <deque>
#include <lua.hpp>
#include <string>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

/// A block's name for people: its type, and the line of the program in L that is creating it:
/// "SEND_EMAIL of pump.lua:3".
[[nodiscard]] std::string NameOfBlock(const std::string& type_name, lua_State* L);

/// A message's name for people: `SEND_EMAIL of pump.lua:3, "Alarm" via 127.0.0.1 port 25`.
[[nodiscard]] std::string NameOfMail(const std::string& block, const std::string& subject,
                                     const std::string& server, unsigned short port);

/// A message that could not even be queued.
[[nodiscard]] std::string DescribeRefusal(const std::string& name_of_mail, const ECSmtp& error);

/// A message whose Send has thrown `error`: code, step, whether the server has it, the server's
/// last line, and the usual reason where the code alone does not show it.
[[nodiscard]] std::string DescribeFailure(const std::string& block, const CSmtp& mail,
                                          const ECSmtp& error);

/// The messages (at least one) that a block drops when it is destroyed, with the subjects of the
/// first few.
[[nodiscard]] std::string DescribeDropped(const std::string& block,
                                          const std::deque<boost::shared_ptr<CSmtp>>& dropped);
