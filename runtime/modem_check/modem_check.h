// SPDX-License-Identifier: MIT
// Whether messages can be sent with a modem, and if not, why and what to do.
// Threads: one.
#pragma once

#include <chrono>
#include <string>

#include "runtime/modem_check/finding.h"
#include "runtime/modem_check/modem_talk.h"

namespace corvane::modem_check {

struct CheckOptions {
  std::string receiver = {};  ///< of a test message: digits, possibly after a plus; empty: none
  /// How long a modem may go on searching for a network.
  std::chrono::seconds registration{10};
  /// How long the network may take to confirm the test message.
  std::chrono::seconds confirmation{180};
};

/// Finds the modem: opens the line and, while nothing answers, tries the usual baud rates.
/// Reports a finding if it does not answer at all, or not with these settings.
/// @return whether it answers
[[nodiscard]] bool FindModem(ModemTalk& talk, const Report& report);

/// Finds the modem and goes through everything that sending needs. Nothing is changed for good:
/// what the modem was set to for the check, `corvane run` sets, too, or is set back.
/// @return whether messages can be sent: there was no finding of Grade::kError
[[nodiscard]] bool CheckModem(const ModemTarget& target, const CheckOptions& options,
                              const Report& report);

}  // namespace corvane::modem_check
