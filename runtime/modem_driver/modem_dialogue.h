// SPDX-License-Identifier: MIT
// One request after the other to a modem that is set up when it must be.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_setup.h"

namespace corvane {

class ModemDialogue {
 public:
  using State = ModemExchange::State;

  /// @param status told each exchange, as far as the log may show it
  /// @param pins which the SIM card has refused
  ModemDialogue(const ModemTarget& target, WaitLoop& loop, ModemStatus& status, PinMemory& pins)
      : target_(target), exchange_(target, loop, status), setup_(exchange_, pins) {}

  /// Takes a newly opened line and sets the modem up, as far as it answers.
  void Attach(std::unique_ptr<SerialLine> line);
  /// Closes the line.
  void Detach() { exchange_.Close(); }

  /// Sends a request and waits for its answer. A command that finds the modem in an unknown state
  /// sets it up first; a text is sent to an open prompt only, and only once.
  /// @param timeout from the last octet received, more than 0
  [[nodiscard]] ExchangeResult Exchange(const ModemRequest& request,
                                        std::chrono::milliseconds timeout);
  /// Leaves the prompt; the text that was announced is not sent.
  void LeavePrompt();
  /// Drops what comes until then, and notices when the line is lost.
  void Idle(SteadyTime until) { exchange_.Idle(until); }

  [[nodiscard]] State state() const { return exchange_.state(); }
  /// Why the line was lost; empty while it is open.
  [[nodiscard]] std::string loss() const { return exchange_.loss(); }

 private:
  ExchangeResult NotSent(const ModemRequest& request, const char* why);

  const ModemTarget& target_;
  ModemExchange exchange_;
  ModemSetup setup_;
};

}  // namespace corvane
