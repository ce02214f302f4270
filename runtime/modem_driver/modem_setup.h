// SPDX-License-Identifier: MIT
// Brings a modem into a known state: out of a prompt, echo off, result codes as words (ITU-T
// V.250), then the commands of the option `init`, a PIN among them.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <string>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_request.h"

namespace corvane {

class ModemSetup {
 public:
  explicit ModemSetup(ModemExchange& exchange) : exchange_(exchange) {}

  /// True when the modem waits for a command. Tries until the deadline, and once in any case.
  [[nodiscard]] bool Run(SteadyTime deadline);
  /// After a new line was opened: tells the log when the modem does not answer.
  void RunOnOpening();

 private:
  [[nodiscard]] bool SwitchEchoOff(SteadyTime deadline);
  void RunInit();
  void RunInitCommand(const ModemRequest& command);
  [[nodiscard]] bool MaySendPin(const ModemRequest& command);
  ExchangeResult TransactOnceSimIsReady(const ModemRequest& command);

  ModemExchange& exchange_;
  bool pin_refused_ = false;  // never to be sent again: the third failure locks the SIM
};

}  // namespace corvane
