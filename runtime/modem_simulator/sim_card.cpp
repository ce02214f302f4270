// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/sim_card.h"

namespace modem_simulator {

bool SimCard::Enter(std::string_view pin) {
  if (blocked()) return false;
  if (pin != pin_) {
    --attempts_left_;
    return false;
  }
  attempts_left_ = kAttempts;
  unlocked_ = true;
  return true;
}

std::string_view SimCard::state() const {
  if (unlocked_) return "READY";
  return blocked() ? "SIM PUK" : "SIM PIN";
}

}  // namespace modem_simulator
