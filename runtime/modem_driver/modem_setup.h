// SPDX-License-Identifier: MIT
// Brings a modem into a known state: it leaves a prompt, switches echo off and result codes to
// words (ITU-T V.250), then sends the commands of the option `init`, which may contain a PIN.
// Threads: the port's own.
#pragma once

#include <string>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/pin_memory.h"
#include "runtime/modem_driver/sim_pin.h"

namespace corvane {

class ModemSetup {
 public:
  /// @param memory remembers the PINs that SIM cards have refused; shared by all ports
  ModemSetup(ModemExchange& exchange, PinMemory& memory)
      : exchange_(exchange),
        pin_(exchange, memory, [this](const ModemRequest& command) { return AskInStep(command); }) {
  }

  /// True if the modem then waits for a command. Tries until the deadline, but at least once.
  [[nodiscard]] bool Run(SteadyTime deadline);
  /// After a new line was opened: logs if the modem does not answer.
  void RunOnOpening();

 private:
  [[nodiscard]] bool SwitchEchoOff(SteadyTime deadline);
  void RunInit();
  void RunInitCommand(const ModemRequest& command);
  ExchangeResult TransactOnceSimIsReady(const ModemRequest& command);
  /// The same; if the modem has not answered, it is made ready for the next command, so that a late
  /// answer is not taken for that command's.
  ExchangeResult AskInStep(const ModemRequest& command);

  ModemExchange& exchange_;
  SimPin pin_;
};

}  // namespace corvane
