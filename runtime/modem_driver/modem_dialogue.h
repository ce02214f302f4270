// SPDX-License-Identifier: MIT
// Passes one request after another to a modem, which is set up when necessary and left alone while
// it is still working on an earlier one.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_driver/known_answers.h"
#include "runtime/modem_driver/late_answer.h"
#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_setup.h"

namespace corvane {

class ModemDialogue {
 public:
  using State = ModemExchange::State;

  /// @param status is set to each exchange, as far as the log may show it
  /// @param pins the PINs that the SIM card has refused
  ModemDialogue(const ModemTarget& target, WaitLoop& loop, ModemStatus& status, PinMemory& pins)
      : target_(target),
        exchange_(target, loop, status),
        setup_(exchange_, pins),
        known_(target.times.kept) {}

  /// Takes a newly opened line and sets the modem up, if it answers.
  void Attach(std::unique_ptr<SerialLine> line);
  /// Closes the line.
  void Detach() { exchange_.Close(); }

  /// Sends a client's request and waits for its answer. A command that finds the modem in an
  /// unknown state sets it up first; a text is sent only to an open prompt, and only once. While
  /// the modem is working on an earlier request, this one waits for that and is not sent. If the
  /// answer to an earlier request of this client came late, it now answers the same request.
  /// @param client any number, the same for all requests of one client
  /// @param timeout counted from the last octet received; more than 0
  [[nodiscard]] ExchangeResult Exchange(std::uint64_t client, const ModemRequest& request,
                                        std::chrono::milliseconds timeout);
  /// Leaves the prompt; the text that was announced is not sent.
  void LeavePrompt() { exchange_.Escape(); }
  /// The modem is working on a request that was given up: any request would fail now.
  [[nodiscard]] bool busy() const { return late_.undisturbed(); }
  /// The client waits for its turn; a late answer for it is not forgotten.
  void NoteWanted(std::uint64_t client);
  /// The client does not try again to send a message.
  /// @param answer the answer to its last text; empty: none
  void NoteGivenUp(std::string_view answer) { exchange_.advice().NoteGivenUp(answer); }
  /// Takes what comes until this time, until there is news, or until the modem is no longer busy.
  /// Notices when the line is lost.
  void Idle(SteadyTime until) { Await(until, true); }
  /// What the modem has said on its own since the last call.
  [[nodiscard]] std::vector<ModemNewsItem> TakeNews();

  [[nodiscard]] State state() const { return exchange_.state(); }
  /// Why the line was lost; empty while it is open.
  [[nodiscard]] std::string loss() const { return exchange_.loss(); }

 private:
  [[nodiscard]] ExchangeResult Send(std::uint64_t client, const ModemRequest& request,
                                    std::chrono::milliseconds timeout);
  [[nodiscard]] ExchangeResult SendAnnounced(std::uint64_t client, const ModemRequest& announcement,
                                             const ModemRequest& text,
                                             std::chrono::milliseconds timeout);
  void Await(SteadyTime until, bool for_news);
  ExchangeResult NotSent(const ModemRequest& request, const char* why);

  const ModemTarget& target_;
  ModemExchange exchange_;
  ModemSetup setup_;
  KnownAnswers known_;
  LateAnswer late_{exchange_, known_};
  std::optional<ModemRequest> announcement_;  // the last one
  unsigned starts_ = 0;                       // the modem's, when known_ was last valid
};

}  // namespace corvane
