// SPDX-License-Identifier: MIT
// A request got no answer in time, and the modem may still be working on it. Until the answer
// comes, nothing is written: a command would abort the work, or its answer would be taken for
// another's. There is one exception: while a message waits for the network, a probe (AT) is sent
// now and then. An answer to the probe without a confirmation shows that the message is lost.
// Threads: the port's own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "runtime/modem_driver/known_answers.h"
#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_times.h"

namespace corvane {

class LateAnswer {
 public:
  LateAnswer(ModemExchange& exchange, KnownAnswers& known);

  /// The exchange's last request, which is this client's, got no answer in time.
  /// @param announcement that of the text, if the request is a text
  void Begin(std::uint64_t client, const std::optional<ModemRequest>& announcement);
  /// An answer may still come.
  [[nodiscard]] bool expected() const { return exchange_.state() == ModemExchange::State::kLate; }
  /// It is too early to ask clients for requests: they would only fail.
  [[nodiscard]] bool undisturbed() const;
  /// Waits until this time, or until the answer has come or is given up.
  /// @param for_news returns also as soon as there is news
  void Wait(SteadyTime until, bool for_news);
  /// A prompt that came late is open, and the client announces the same message again.
  [[nodiscard]] bool HasPrompt(std::uint64_t client, const ModemRequest& announcement) const;
  void NoteWanted(std::uint64_t client);

 private:
  [[nodiscard]] const ModemTimes& times() const { return exchange_.target().times; }
  [[nodiscard]] SteadyTime GiveUpTime() const;
  [[nodiscard]] SteadyTime NextStep() const;
  void Take(std::string_view octets);
  void Judge();
  void TakeFinal();
  void Confirm();
  void Probe();
  void TextIsLost(const char* why);

  ModemExchange& exchange_;
  KnownAnswers& known_;
  std::uint64_t client_ = 0;
  std::optional<ModemRequest> announcement_;  // of the text that is late, or whose prompt is
  SteadyTime wanted_;                         // when the client last wanted something
  SteadyTime last_own_;                       // when an octet of the answer last came
  SteadyTime next_probe_;
  int probes_ = 0;                        // sent and not answered
  std::unique_ptr<PendingAnswer> probe_;  // the last one
};

}  // namespace corvane
