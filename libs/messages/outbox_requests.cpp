// SPDX-License-Identifier: MIT
// What people ask an outbox for with `corvane messages`.
#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "libs/messages/outbox.h"

namespace messages {

void Outbox::Apply(const Request& request, const Now& now) {
  switch (request.kind) {
    case RequestKind::kLimit: {
      limit_per_hour_ = std::max<std::int64_t>(request.value, 0);
      disk_.write({SetLimit{limit_per_hour_}});
      return Answer(request, true,
                    "limit: " + std::to_string(limit_per_hour_) +
                        " messages per hour and port or mail account");
    }
    case RequestKind::kCancel: return Cancel(request, now);
    case RequestKind::kRetry: return Retry(request, now);
  }
}

void Outbox::Answer(const Request& request, bool done, std::string outcome) {
  if (request.answered_elsewhere) return;
  disk_.write({AnswerRequest{request.id, done, std::move(outcome)}});
}

void Outbox::Cancel(const Request& request, const Now& now) {
  Entry* const entry = FindEntry(request.message.id);
  if (entry == nullptr || entry->row.state != OutgoingState::kWaiting) {
    return Answer(request, false, "not cancelled: it is no longer waiting");
  }
  if (entry->in_attempt) {
    return Answer(request, false, "not cancelled: it is being sent; try again in a minute");
  }
  End(request.message.id, OutgoingState::kCancelled, kRefusedError,
      "cancelled with 'corvane messages cancel'", now);
  Answer(request, true, "cancelled");
}

void Outbox::Retry(const Request& request, const Now& now) {
  if (request.message.id == 0) return Answer(request, false, "there is no such message any more");
  Entry* entry = FindEntry(request.message.id);
  if (entry != nullptr && entry->in_attempt) {
    return Answer(request, false, "not changed: it is being sent now");
  }
  if (entry != nullptr && entry->row.state == OutgoingState::kWaiting) {
    ReleaseRoute(entry->row.route, now);
    Delay(*entry, now.steady, now);
    return Answer(request, true, "it will be tried again at once");
  }
  if (request.message.state == OutgoingState::kSent || entry != nullptr) {
    return Answer(request, false, "not tried again: it was sent");
  }
  if (request.message.state == OutgoingState::kWaiting) {
    // It waited when the request was read, and has ended since: perhaps it was sent.
    return Answer(request, false,
                  "not tried again: it has just ended; 'corvane messages' shows how");
  }
  Entry again;
  again.row = request.message;
  const auto valid_for = again.row.expires - again.row.created;
  again.row.state = OutgoingState::kWaiting;
  again.row.attempts = again.row.unknown_ends = again.row.error_id = 0;
  again.row.finished = {};
  again.row.reason.clear();
  again.created = again.next_try = now.steady;
  again.expires = now.steady + std::max(valid_for, {});
  ReleaseRoute(again.row.route, now);
  Put(std::move(again), now);
  Save(*FindEntry(request.message.id), now);
  Answer(request, true, "it will be tried again, with its whole ValidFor");
}

}  // namespace messages
