// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_dialogue.h"

#include <algorithm>
#include <utility>

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kEscapeTimeout(100);

/// Network and modem take their time for these: `patience` is for them.
bool IsSlow(RequestKind kind) {
  return kind == RequestKind::kText || kind == RequestKind::kList;
}

}  // namespace

void ModemDialogue::Attach(std::unique_ptr<SerialLine> line) {
  exchange_.Open(std::move(line));
  setup_.RunOnOpening();
}

ExchangeResult ModemDialogue::Exchange(const ModemRequest& request, milliseconds timeout) {
  const bool is_text = request.kind == RequestKind::kText;
  if (!is_text && state() == State::kPrompt) LeavePrompt();
  // What comes now is late and not this request's answer, or tells of a restart.
  Idle(steady_clock::now() + (is_text ? target_.prompt_pause : milliseconds(0)));
  if (is_text && state() != State::kPrompt) return NotSent(request, "its prompt is gone");
  if (state() == State::kUnknown && !setup_.Run(steady_clock::now() + timeout)) {
    return NotSent(request, "the modem does not answer");
  }
  if (state() == State::kNoLine) return {};
  return exchange_.Transact(request,
                            IsSlow(request.kind) ? std::max(timeout, target_.patience) : timeout);
}

void ModemDialogue::LeavePrompt() {
  exchange_.Escape(kEscapeTimeout);
}

ExchangeResult ModemDialogue::NotSent(const ModemRequest& request, const char* why) {
  exchange_.Report(request.shown + " not sent, " + why);
  return {};
}

}  // namespace corvane
