// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/late_answer.h"

#include <algorithm>

namespace corvane {
namespace {

using State = ModemExchange::State;
using std::chrono::steady_clock;

}  // namespace

LateAnswer::LateAnswer(ModemExchange& exchange, KnownAnswers& known)
    : exchange_(exchange), known_(known) {}

void LateAnswer::Begin(std::uint64_t client, const std::optional<ModemRequest>& announcement) {
  client_ = client;
  announcement_ = announcement;
  wanted_ = steady_clock::now();
  last_own_ = wanted_;
  next_probe_ = std::max(exchange_.late().since + times().probe, wanted_);
  probes_ = 0;
  probe_.reset();
}

bool LateAnswer::undisturbed() const {
  return expected() && steady_clock::now() < exchange_.late().since + times().undisturbed;
}

void LateAnswer::Wait(SteadyTime until, bool for_news) {
  while (expected() && steady_clock::now() < until && !exchange_.stopped() &&
         exchange_.loss().empty() && !(for_news && exchange_.has_news())) {
    Take(exchange_.Receive(std::min(until, NextStep())));
    if (expected()) Judge();
  }
}

bool LateAnswer::HasPrompt(std::uint64_t client, const ModemRequest& announcement) const {
  return exchange_.state() == State::kPrompt && announcement_ && client == client_ &&
         announcement.octets == announcement_->octets;
}

void LateAnswer::NoteWanted(std::uint64_t client) {
  if (client == client_) wanted_ = steady_clock::now();
}

SteadyTime LateAnswer::GiveUpTime() const {
  const PendingAnswer& late = exchange_.late();
  switch (late.request.kind) {
    case RequestKind::kText:
      return std::min(late.since + times().late_text, wanted_ + times().kept);
    case RequestKind::kList:
      return std::max(late.since + times().late_list, last_own_ + times().straggler);
    case RequestKind::kCommand:
    case RequestKind::kAnnouncement: break;
  }
  return late.since + times().late_command;
}

SteadyTime LateAnswer::NextStep() const {
  const PendingAnswer& late = exchange_.late();
  if (late.request.kind != RequestKind::kText) return GiveUpTime();
  if (late.answer.lines() > 0) return last_own_ + times().straggler;
  return std::min(next_probe_, GiveUpTime());
}

void LateAnswer::Take(std::string_view octets) {
  AtAnswer& answer = exchange_.late().answer;
  const std::size_t own = answer.octets();
  std::size_t used = 0;
  while (used < octets.size() && expected() && answer.state() == AtAnswer::State::kOpen) {
    if (probe_) probe_->answer.Feed(octets[used]);
    answer.Feed(octets[used++]);
  }
  if (answer.octets() > own) last_own_ = steady_clock::now();
  exchange_.Drop(octets.substr(used));
}

void LateAnswer::Judge() {
  const PendingAnswer& late = exchange_.late();
  const bool is_text = late.request.kind == RequestKind::kText;
  const auto now = steady_clock::now();
  switch (late.answer.state()) {
    case AtAnswer::State::kPrompt: return exchange_.EndLate(State::kPrompt, "prompt");
    case AtAnswer::State::kFinal: return TakeFinal();
    case AtAnswer::State::kTooLong: return exchange_.GiveUpLate();
    case AtAnswer::State::kRestarted: return;  // the state is no longer kLate
    case AtAnswer::State::kOpen: break;
  }
  if (is_text && late.answer.lines() > 0) {
    // The number shows that the network has the message, even if no OK follows.
    if (now >= last_own_ + times().straggler) Confirm();
  } else if (probe_ && probe_->answer.state() == AtAnswer::State::kPrompt) {
    // The modem has missed the Ctrl-Z and asks for more text.
    exchange_.Escape();
    TextIsLost("the modem still waits for its end");
  } else if (now >= GiveUpTime()) {
    exchange_.GiveUpLate();
  } else if (is_text && now >= next_probe_) {
    Probe();
  }
}

void LateAnswer::TakeFinal() {
  PendingAnswer& late = exchange_.late();
  AtAnswer& answer = late.answer;
  exchange_.advice().NoteAnswer();
  exchange_.advice().NoteRefusal(late.request, answer.text());
  const bool ok = answer.final_kind() == LineKind::kOk;
  if (late.request.kind == RequestKind::kText && ok) {
    // A bare OK belongs to the oldest probe: an answer to the text would have come before.
    if (answer.lines() > 0 || probes_ == 0) return Confirm();
    --probes_;
    return TextIsLost("the modem answers AT, and has not confirmed it");
  }
  if (late.request.kind == RequestKind::kList && ok && answer.lines() > 0) {
    known_.Keep(client_, {{late.request, {true, late.answer.text(), LineKind::kOk}}});
  }
  exchange_.EndLate(probes_ == 0 ? State::kReady : State::kUnknown, answer.final_line());
}

void LateAnswer::Confirm() {
  PendingAnswer& late = exchange_.late();
  std::string& text = late.answer.text();
  const bool whole = late.answer.state() == AtAnswer::State::kFinal;
  if (!whole) text += "OK\r\n";
  if (announcement_) {
    known_.Keep(client_, {{*announcement_, {true, ">", LineKind::kUnknown}},
                          {late.request, {true, text, LineKind::kOk}}});
  }
  exchange_.advice().NoteLateConfirmation(steady_clock::now() - late.since);
  exchange_.EndLate(whole && probes_ == 0 ? State::kReady : State::kUnknown, "confirmed");
}

void LateAnswer::Probe() {
  next_probe_ = steady_clock::now() + times().probe;
  probe_ = std::make_unique<PendingAnswer>(ModemRequest("AT\r"), [](std::string_view, LineKind) {});
  exchange_.Write(probe_->request);
  ++probes_;
}

void LateAnswer::TextIsLost(const char* why) {
  exchange_.advice().NoteLostText(why);
  exchange_.EndLate(
      probes_ == 0 && exchange_.state() == State::kLate ? State::kReady : State::kUnknown, "lost");
}

}  // namespace corvane
