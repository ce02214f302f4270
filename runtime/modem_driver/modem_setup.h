// SPDX-License-Identifier: MIT
// Brings a modem into a known state: out of a prompt, echo off, result codes as words (ITU-T
// V.250), then the commands of the option `init`, a PIN among them.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <string>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/pin_memory.h"
#include "runtime/modem_driver/sim_pin.h"

namespace corvane {

class ModemSetup {
 public:
  /// @param memory of the PINs that a SIM card has refused; shared by all ports
  ModemSetup(ModemExchange& exchange, PinMemory& memory)
      : exchange_(exchange),
        pin_(exchange, memory, [this](const ModemRequest& command) { return AskInStep(command); }) {
  }

  /// True when the modem waits for a command. Tries until the deadline, and once in any case.
  [[nodiscard]] bool Run(SteadyTime deadline);
  /// After a new line was opened: tells the log when the modem does not answer.
  void RunOnOpening();

 private:
  [[nodiscard]] bool SwitchEchoOff(SteadyTime deadline);
  void RunInit();
  void RunInitCommand(const ModemRequest& command);
  ExchangeResult TransactOnceSimIsReady(const ModemRequest& command);
  /// The same, and a modem that has not answered is ready for the next command afterwards, whose
  /// answer is not the late one.
  ExchangeResult AskInStep(const ModemRequest& command);

  ModemExchange& exchange_;
  SimPin pin_;
};

}  // namespace corvane
