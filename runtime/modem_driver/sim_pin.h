// SPDX-License-Identifier: MIT
// The PIN among the commands of the option `init` (3GPP TS 27.007 clauses 8.3 and 8.65): it is sent
// only if the SIM card asks for it, and never again if it was wrong.
// Threads: the port's own.
#pragma once

#include <functional>
#include <string>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/pin_memory.h"

namespace corvane {

class SimPin {
 public:
  /// Sends a command and waits for its answer, until a busy SIM card is ready.
  using Ask = std::function<ExchangeResult(const ModemRequest& command)>;

  SimPin(ModemExchange& exchange, PinMemory& memory, Ask ask)
      : exchange_(exchange), memory_(memory), ask_(std::move(ask)) {}

  /// Sends the command, which contains a PIN, if that cannot do harm; logs why it was not
  /// sent, or that the PIN was not accepted.
  void Send(const ModemRequest& command);

 private:
  /// Whether the card asks for its PIN, and for nothing else.
  [[nodiscard]] bool IsAskedFor(const ModemRequest& command, const PinAttempt& attempt);
  /// After any PIN was refused: whether this one was refused, or may have been, or this is the last
  /// try. Finds the card's number.
  [[nodiscard]] bool IsTooRisky(const ModemRequest& command, PinAttempt& attempt);
  void RememberRefused(PinAttempt attempt);
  /// Digits of the number on the card (ITU-T E.118); empty: the modem does not report it.
  [[nodiscard]] std::string CardNumber();
  struct Tries {
    int left = -1;          // negative: the modem does not report it
    bool all_left = false;  // no wrong PIN since the last right one
  };
  [[nodiscard]] Tries TriesLeft();
  void NotSent(const ModemRequest& command, const std::string& why) const;

  ModemExchange& exchange_;
  PinMemory& memory_;
  Ask ask_;
};

/// The number of a SIM card in a modem's answer to AT+CRSM, whose digits are swapped, or to a
/// maker's command; without the final digits that some commands add or leave out. Empty: none.
[[nodiscard]] std::string CardNumberIn(std::string_view answer);

}  // namespace corvane
