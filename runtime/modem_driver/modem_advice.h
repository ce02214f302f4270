// SPDX-License-Identifier: MIT
// What the log tells about a modem that does not do as it should, and what helps; each once.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

class ModemAdvice {
 public:
  explicit ModemAdvice(const ModemTarget& target) : target_(target) {}

  /// Nothing came; told again only after the modem has answered.
  void NoteSilence(const ModemRequest& request, std::chrono::milliseconds timeout);
  void NoteAnswer();
  void NoteRestart(std::string_view line) const;
  void NoteEndlessAnswer(const ModemRequest& request) const;
  /// A message was answered by OK alone.
  void NoteOkWithoutNumber(const ModemRequest& text) const;
  /// A text or a list had no answer in time.
  void NoteOverdue(const ModemRequest& request, SteadyTime sent);
  /// Looks whether the line begins the answer that is overdue.
  void NoteForeignLine(std::string_view line);

 private:
  struct Overdue {
    RequestKind kind = RequestKind::kCommand;
    std::string name;  // of the command; empty: nothing is overdue
    SteadyTime sent;
  };

  const ModemTarget& target_;
  Overdue overdue_;
  bool answers_ = true;  // false once silence was reported
  bool patience_told_ = false;
};

}  // namespace corvane
