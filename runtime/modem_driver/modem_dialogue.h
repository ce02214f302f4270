// SPDX-License-Identifier: MIT
// One request after the other to a modem that is set up when it must be, and is left alone while it
// is still at work on an earlier one.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/modem_driver/known_answers.h"
#include "runtime/modem_driver/late_answer.h"
#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_setup.h"

namespace corvane {

class ModemDialogue {
 public:
  using State = ModemExchange::State;

  /// @param status told each exchange, as far as the log may show it
  /// @param pins which the SIM card has refused
  ModemDialogue(const ModemTarget& target, WaitLoop& loop, ModemStatus& status, PinMemory& pins)
      : target_(target),
        exchange_(target, loop, status),
        setup_(exchange_, pins),
        known_(target.times.kept) {}

  /// Takes a newly opened line and sets the modem up, as far as it answers.
  void Attach(std::unique_ptr<SerialLine> line);
  /// Closes the line.
  void Detach() { exchange_.Close(); }

  /// Sends a client's request and waits for its answer. A command that finds the modem in an
  /// unknown state sets it up first; a text is sent to an open prompt only, and only once. While
  /// the modem is at work on an earlier request, this one waits for that and is not sent. What came
  /// late for this client answers the same request of its again, without the modem.
  /// @param client any number; the same for the requests of one client
  /// @param timeout from the last octet received, more than 0
  [[nodiscard]] ExchangeResult Exchange(std::uint64_t client, const ModemRequest& request,
                                        std::chrono::milliseconds timeout);
  /// Leaves the prompt; the text that was announced is not sent.
  void LeavePrompt() { exchange_.Escape(); }
  /// The modem is at work on a request that was given up: whatever is asked of it now would fail.
  [[nodiscard]] bool busy() const { return late_.undisturbed(); }
  /// The client waits for its turn; what came late for it is not forgotten.
  void NoteWanted(std::uint64_t client);
  /// The client does not try again to send a message, whose text was answered so, or not at all.
  void NoteGivenUp(std::string_view answer) { exchange_.advice().NoteGivenUp(answer); }
  /// Takes what comes until then, or until the modem is not busy any more. Notices when the line is
  /// lost.
  void Idle(SteadyTime until);

  [[nodiscard]] State state() const { return exchange_.state(); }
  /// Why the line was lost; empty while it is open.
  [[nodiscard]] std::string loss() const { return exchange_.loss(); }

 private:
  [[nodiscard]] ExchangeResult Send(std::uint64_t client, const ModemRequest& request,
                                    std::chrono::milliseconds timeout);
  [[nodiscard]] ExchangeResult SendAnnounced(std::uint64_t client, const ModemRequest& announcement,
                                             const ModemRequest& text,
                                             std::chrono::milliseconds timeout);
  ExchangeResult NotSent(const ModemRequest& request, const char* why);

  const ModemTarget& target_;
  ModemExchange exchange_;
  ModemSetup setup_;
  KnownAnswers known_;
  LateAnswer late_{exchange_, known_};
  std::optional<ModemRequest> announcement_;  // the last one
  unsigned starts_ = 0;                       // of the modem that known_ is about
};

}  // namespace corvane
