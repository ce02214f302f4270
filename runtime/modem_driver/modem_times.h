// SPDX-License-Identifier: MIT
// How long a modem port waits, and for what. Tests shorten all times alike.
#pragma once

#include <chrono>

namespace corvane {

struct ModemTimes {
  using Time = std::chrono::milliseconds;

  // Counted from a request, for an answer that did not come within the request's own time-out.
  Time late_command{8'000};  ///< makers: up to 5 s for a prompt or for deleting one message
  Time late_list{20'000};    ///< makers: up to 20 s
  Time late_text{180'000};   ///< makers: up to 3 minutes
  /// How long no client is asked for a request while a text waits for its confirmation.
  Time undisturbed{60'000};
  /// Between a text or a probe and the next probe. Some modems abort AT+CMGS on any character, so
  /// probes are few, and the first one comes after most networks have confirmed.
  Time probe{10'000};
  /// How long a late answer is kept for a client that does not ask for it.
  Time kept{60'000};
  /// How long the rest of an answer, or answers to earlier commands, may take to follow.
  Time straggler{1'000};
  Time first_pause{100};  ///< of a client whose exchange failed; doubled at each further failure
  Time longest_pause{5'000};
  Time warning{60'000};  ///< between two equal warnings
};

}  // namespace corvane
