// SPDX-License-Identifier: MIT
// Log messages about a modem that misbehaves, with advice. Most are logged once, or once in a
// while. Threads: the port's own.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/rare_warning.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

class ModemAdvice {
 public:
  explicit ModemAdvice(const ModemTarget& target)
      : target_(target), warning_(target.times.warning) {}

  /// Nothing has come for `time`; reported again only after the modem has answered.
  void NoteSilence(const ModemRequest& request, std::chrono::nanoseconds time);
  void NoteAnswer();
  void NoteRestart(std::string_view line) const;
  void NoteEndlessAnswer(const ModemRequest& request) const;
  /// A message was answered with OK alone.
  void NoteOkWithoutNumber(const ModemRequest& text) const;
  /// The network confirmed a text `time` after it was sent, too late for its request.
  void NoteLateConfirmation(std::chrono::nanoseconds time);
  /// A text has not reached the network; the client's next attempt sends it again.
  void NoteLostText(std::string_view why);
  /// The modem answered a client's request; a refusal by +CMS ERROR or +CME ERROR is logged.
  void NoteRefusal(const ModemRequest& request, std::string_view answer);
  /// The client does not try again to send a message.
  /// @param answer the last answer; empty: none
  void NoteGivenUp(std::string_view answer);
  /// So many announcements, messages and reports came too fast to be handed on.
  void NoteDroppedNews(std::size_t number);
  /// Checks whether the line begins a list that was given up.
  void NoteForeignLine(std::string_view line);

 private:
  const ModemTarget& target_;
  RareWarning warning_;
  std::string overdue_list_;  // name of its command; empty: none
  SteadyTime overdue_since_;
  bool answers_ = true;  // false once its silence has been reported
  bool slow_network_reported_ = false;
  bool slow_list_reported_ = false;
};

}  // namespace corvane
