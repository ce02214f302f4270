// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_advice.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <utility>

#include "runtime/corvane/duration.h"

namespace corvane {

void ModemAdvice::NoteSilence(const ModemRequest& request, std::chrono::milliseconds timeout) {
  if (request.kind == RequestKind::kText) return;
  if (!std::exchange(answers_, false)) return;
  spdlog::warn(
      "modem port {}: no answer to {} within {} at {}; check the modem's power, the cable "
      "and baud={}, and that no other program uses the modem",
      target_.port, request.shown, FormatDuration(timeout), target_.Name(), target_.baud);
}

void ModemAdvice::NoteAnswer() {
  if (!std::exchange(answers_, true)) {
    spdlog::info("modem port {}: the modem answers", target_.port);
  }
}

void ModemAdvice::NoteRestart(std::string_view line) const {
  spdlog::warn("modem port {}: the modem has started anew ({}); it is set up again", target_.port,
               line);
}

void ModemAdvice::NoteEndlessAnswer(const ModemRequest& request) const {
  spdlog::warn(
      "modem port {}: {} was answered by a line or a list without end; is the baud rate right "
      "(baud={})?",
      target_.port, request.shown, target_.baud);
}

void ModemAdvice::NoteOkWithoutNumber(const ModemRequest& text) const {
  spdlog::warn(
      "modem port {}: the modem said OK to a message without {}: and its number; some makers' "
      "modems do that when sending failed (init=\"AT^SM20=0,0\" helps there)",
      target_.port, text.name);
}

void ModemAdvice::NoteOverdue(const ModemRequest& request, SteadyTime sent) {
  overdue_ = {request.kind, request.name, sent};
}

void ModemAdvice::NoteForeignLine(std::string_view line) {
  const std::string& name = overdue_.name;
  if (name.empty() || line.substr(0, name.size() + 1) != name + ":") return;
  const Overdue late = std::exchange(overdue_, {});
  if (std::exchange(patience_told_, true)) return;
  const auto took = FormatDuration(std::chrono::steady_clock::now() - late.sent);
  const char* const what =
      late.kind == RequestKind::kText
          ? "the network confirmed a message only after {}, later than it was waited for, so that "
            "the message may go out again"
          : "the modem began its list of messages only after {}, later than it was waited for, so "
            "that they stay in its store, as read";
  spdlog::warn("modem port {}: {}; set patience=60s for this port", target_.port,
               fmt::format(fmt::runtime(what), took));
}

}  // namespace corvane
