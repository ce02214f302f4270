// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_advice.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <utility>

#include "libs/base/printable.h"
#include "runtime/corvane/duration.h"
#include "runtime/modem_driver/modem_news.h"
#include "runtime/modem_driver/refusal.h"

namespace corvane {

void ModemAdvice::NoteSilence(const ModemRequest& request, std::chrono::nanoseconds time) {
  if (request.kind == RequestKind::kText) {
    spdlog::warn("modem port {}: no confirmation of a message within {}; it may be sent again",
                 target_.port, FormatDuration(time));
    return;
  }
  if (request.kind == RequestKind::kList) {
    overdue_list_ = request.name;
    overdue_since_ = std::chrono::steady_clock::now() - time;
  }
  if (!std::exchange(answers_, false)) return;
  spdlog::warn(
      "modem port {}: no answer to {} within {} at {}; check the modem's power, the cable "
      "and baud={}, and that no other program uses the modem",
      target_.port, request.shown, FormatDuration(time), target_.Name(), target_.baud);
}

void ModemAdvice::NoteAnswer() {
  if (!std::exchange(answers_, true)) {
    spdlog::info("modem port {}: the modem answers", target_.port);
  }
}

void ModemAdvice::NoteRestart(std::string_view line) const {
  spdlog::warn("modem port {}: the modem has restarted ({}); it is set up again", target_.port,
               line);
}

void ModemAdvice::NoteEndlessAnswer(const ModemRequest& request) const {
  spdlog::warn(
      "modem port {}: {} was answered with an endless line or list; is the baud rate right "
      "(baud={})?",
      target_.port, request.shown, target_.baud);
}

void ModemAdvice::NoteOkWithoutNumber(const ModemRequest& text) const {
  spdlog::warn(
      "modem port {}: the modem answered OK to a message, but without {}: and its number; modems "
      "of some makers do that when sending has failed (init=\"AT^SM20=0,0\" helps there)",
      target_.port, text.name);
}

void ModemAdvice::NoteLateConfirmation(std::chrono::nanoseconds time) {
  if (std::exchange(slow_network_reported_, true)) return;
  spdlog::info(
      "modem port {}: the network confirmed a message after {}. It is not sent again, but until "
      "then SEND_SMS shows Error 6. With patience=60s for this port, it waits without the error",
      target_.port, FormatDuration(time));
}

void ModemAdvice::NoteLostText(std::string_view why) {
  warning_.Log(std::string(why),
               fmt::format("modem port {}: a message is lost in the modem: {}; it "
                           "is sent again if the block has attempts left",
                           target_.port, why));
}

void ModemAdvice::NoteRefusal(const ModemRequest& request, std::string_view answer) {
  const std::string refusal = DescribeRefusal(answer);
  if (refusal.empty()) return;
  const bool is_text = request.kind == RequestKind::kText;
  warning_.Log((is_text ? "text" : request.name) + refusal,
               fmt::format("modem port {}: {} was refused: {}", target_.port,
                           is_text ? "a message" : request.shown, refusal));
}

void ModemAdvice::NoteGivenUp(std::string_view answer) {
  std::string why = DescribeRefusal(answer);
  if (why.empty())
    why = answer.empty() ? "no answer" : Printable(answer.substr(0, answer.find('\r')));
  warning_.Log("given up" + why,
               fmt::format("modem port {}: a message is given up; the last attempt ended with {}",
                           target_.port, why));
}

void ModemAdvice::NoteDroppedNews(std::size_t number) {
  warning_.Log(
      "dropped news",
      fmt::format("modem port {}: the modem announced more than {} messages and reports at "
                  "once; {} of these lines were dropped. Lists still find what is stored",
                  target_.port, ModemNews::kMost, number));
}

void ModemAdvice::NoteForeignLine(std::string_view line) {
  if (overdue_list_.empty() || !line.starts_with(overdue_list_ + ":")) return;
  overdue_list_.clear();
  if (std::exchange(slow_list_reported_, true)) return;
  spdlog::warn(
      "modem port {}: the modem began its list of messages only after {}, when the port no "
      "longer waited for it; they stay in its store, marked as read. Set patience=60s for this "
      "port",
      target_.port, FormatDuration(std::chrono::steady_clock::now() - overdue_since_));
}

}  // namespace corvane
