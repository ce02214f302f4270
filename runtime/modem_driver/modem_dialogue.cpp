// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_dialogue.h"

#include <algorithm>
#include <utility>

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The network or the modem may take long over these: `patience` applies to them.
bool IsSlow(RequestKind kind) {
  return kind == RequestKind::kText || kind == RequestKind::kList;
}

}  // namespace

void ModemDialogue::Attach(std::unique_ptr<SerialLine> line) {
  exchange_.Open(std::move(line));
  setup_.RunOnOpening();
}

void ModemDialogue::NoteWanted(std::uint64_t client) {
  known_.NoteWanted(client);
  late_.NoteWanted(client);
}

std::vector<ModemNewsItem> ModemDialogue::TakeNews() {
  if (!exchange_.has_news()) return {};
  auto news = exchange_.news().TakeAll(steady_clock::now());
  if (const std::size_t dropped = exchange_.news().TakeDropped(); dropped > 0) {
    exchange_.advice().NoteDroppedNews(dropped);
  }
  return news;
}

void ModemDialogue::Await(SteadyTime until, bool for_news) {
  late_.expected() ? late_.Wait(until, for_news) : exchange_.Idle(until, for_news);
  if (std::exchange(starts_, exchange_.starts()) != exchange_.starts()) known_.Clear();
}

ExchangeResult ModemDialogue::Exchange(std::uint64_t client, const ModemRequest& request,
                                       milliseconds timeout) {
  const auto now = steady_clock::now();
  const bool is_text = request.kind == RequestKind::kText;
  // What comes now is a late answer, not this request's, or reports a restart.
  if (state() == State::kLate) {
    Await(now + timeout, false);
  } else {
    Await(now + (is_text ? target_.prompt_pause : milliseconds(0)), false);
  }
  if (auto known = known_.Answer(client, request)) {
    exchange_.Report(request.shown + " -> answered already");
    return *known;
  }
  if (state() == State::kLate) return NotSent(request, "the modem is still at work");
  if (late_.HasPrompt(client, request)) return {true, ">", LineKind::kUnknown};
  if (is_text) {
    if (const auto announcement = known_.TakeAnnouncement(client)) {
      return SendAnnounced(client, *announcement, request, timeout);
    }
  }
  return Send(client, request, timeout);
}

ExchangeResult ModemDialogue::SendAnnounced(std::uint64_t client, const ModemRequest& announcement,
                                            const ModemRequest& text, milliseconds timeout) {
  ExchangeResult announced = Send(client, announcement, timeout);
  if (state() == State::kPrompt) return Send(client, text, timeout);
  // An OK without a prompt would be taken for the answer to the text.
  if (!announced.answered || announced.final_kind == LineKind::kOk) return NothingWritten();
  return announced;
}

ExchangeResult ModemDialogue::Send(std::uint64_t client, const ModemRequest& request,
                                   milliseconds timeout) {
  const bool is_text = request.kind == RequestKind::kText;
  if (!is_text && state() == State::kPrompt) LeavePrompt();
  if (is_text && state() != State::kPrompt) return NotSent(request, "its prompt is gone");
  if (state() == State::kUnknown && !setup_.Run(steady_clock::now() + timeout)) {
    return NotSent(request, "the modem does not answer");
  }
  if (state() != State::kReady && state() != State::kPrompt) return NothingWritten();
  if (request.kind == RequestKind::kAnnouncement) {
    announcement_ = request;
    known_.Forget(client);  // it announces a message other than the one that is kept for it
  }
  ExchangeResult result = exchange_.Transact(
      request, IsSlow(request.kind) ? std::max(timeout, target_.patience) : timeout);
  if (state() == State::kLate) late_.Begin(client, announcement_);
  if (IsFinal(result.final_kind)) exchange_.advice().NoteRefusal(request, result.text);
  return result;
}

ExchangeResult ModemDialogue::NotSent(const ModemRequest& request, const char* why) {
  exchange_.Report(request.shown + " not sent, " + why);
  return NothingWritten();
}

}  // namespace corvane
