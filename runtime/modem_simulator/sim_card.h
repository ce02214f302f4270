// SPDX-License-Identifier: MIT
// The SIM card, which may be taken out, and its PIN (3GPP TS 27.007 clause 8.3).
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace modem_simulator {

class SimCard {
 public:
  /// An empty PIN means that none is asked for.
  explicit SimCard(std::string pin) : pin_(std::move(pin)) { PowerOn(); }

  /// The PIN is asked for again; a blocked card stays blocked.
  void PowerOn() { unlocked_ = pin_.empty(); }
  /// Whether the PIN is right. After three wrong ones in a row the card is blocked.
  bool Enter(std::string_view pin);

  void TakeOut() { inserted_ = false; }
  /// Puts the same card in again, which then asks for its PIN.
  void PutIn() {
    inserted_ = true;
    PowerOn();
  }

  [[nodiscard]] bool inserted() const { return inserted_; }
  [[nodiscard]] bool ready() const { return inserted_ && unlocked_; }
  [[nodiscard]] bool blocked() const { return attempts_left_ == 0; }
  /// What AT+CPIN? says: "READY", "SIM PIN" or "SIM PUK".
  [[nodiscard]] std::string_view state() const;

 private:
  static constexpr int kAttempts = 3;

  std::string pin_;
  bool inserted_ = true;
  bool unlocked_ = false;
  int attempts_left_ = kAttempts;
};

}  // namespace modem_simulator
