// SPDX-License-Identifier: MIT
// What the modem port driver has to say while it sets a modem up.
// Threads: one; the log of the process is redirected meanwhile.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "runtime/modem_check/modem_talk.h"

namespace corvane::modem_check {

/// Has the driver set the modem up as `corvane run` does, with the commands of `init`. A PIN is
/// sent as carefully as there: what the card has refused is remembered.
/// @return the driver's warnings, without the number of the port
[[nodiscard]] std::vector<std::string> SetUpByDriver(ModemTalk& talk, WaitLoop& loop);

}  // namespace corvane::modem_check
