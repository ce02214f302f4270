// SPDX-License-Identifier: MIT
// The PIN among the commands of the option `init` (3GPP TS 27.007 clauses 8.3 and 8.65): sent where
// the SIM card asks for it, and never twice when it was wrong.
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

  /// Sends the command, which has a PIN, if that does no harm; tells the log why not, or that the
  /// PIN was not accepted.
  void Send(const ModemRequest& command);

 private:
  /// The card asks for its PIN, and for nothing else.
  [[nodiscard]] bool IsAskedFor(const ModemRequest& command, const PinAttempt& attempt);
  /// After a refusal of whatever PIN: this one was refused, or may have been, or it is the last
  /// try. Finds the card's number.
  [[nodiscard]] bool IsTooRisky(const ModemRequest& command, PinAttempt& attempt);
  void RememberRefused(PinAttempt attempt);
  /// Digits of the number on the card (ITU-T E.118); empty: the modem does not tell it.
  [[nodiscard]] std::string CardNumber();
  struct Tries {
    int left = -1;          // negative: the modem does not tell
    bool all_left = false;  // no wrong PIN since the last right one
  };
  [[nodiscard]] Tries TriesLeft();
  void NotSent(const ModemRequest& command, const std::string& why) const;

  ModemExchange& exchange_;
  PinMemory& memory_;
  Ask ask_;
};

/// The number of a SIM card in the answer of a modem: of AT+CRSM, whose digits are swapped, or of a
/// maker's command; without what some commands add or leave out at its end. Empty: there is none.
[[nodiscard]] std::string CardNumberIn(std::string_view answer);

}  // namespace corvane
