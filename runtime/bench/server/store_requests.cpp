// SPDX-License-Identifier: MIT
#include "runtime/bench/server/store_requests.h"

#include <fmt/format.h>

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

namespace corvane::bench {
namespace {

// A program looks for requests twice a second.
constexpr std::chrono::seconds kAnswerTime(5);
constexpr std::size_t kMostPending = 64;

/// Leaves a request; @return its number. Throws what is wrong.
std::int64_t Leave(messages::StoreView* store, const MessageRequest& request) {
  if (store == nullptr) throw std::runtime_error("the program has no store of messages");
  if (!store->FindOutgoing(request.message)) {
    const bool is_incoming = store->FindIncoming(request.message).has_value();
    throw std::runtime_error(fmt::format(
        fmt::runtime(is_incoming ? "message {} was received, not sent" : "there is no message {}"),
        request.message));
  }
  const auto kind = request.retry ? messages::RequestKind::kRetry : messages::RequestKind::kCancel;
  return store->AddRequest(kind, request.message, 0);
}

/// The program's answer; one that has not come in time is not waited for any longer.
std::optional<messages::AnswerRequest> AnswerTo(messages::StoreView* store, std::int64_t number,
                                                bool is_late) {
  if (store == nullptr) throw std::runtime_error("the store of messages cannot be read");
  auto answer = store->AnswerTo(number);
  if (!answer && is_late && !store->Withdraw(number)) answer = store->AnswerTo(number);
  return answer;
}

}  // namespace

void StoreRequests::Ask(const MessageRequest& request, RequestDone done) {
  if (pending_.size() >= kMostPending) return done("too many requests wait for the program", {});
  std::int64_t number = 0;
  try {
    number = store_->Ask([request](messages::StoreView* store) { return Leave(store, request); });
  } catch (const std::exception& error) {
    return done(error.what(), {});
  }
  pending_.push_back({number, std::chrono::steady_clock::now() + kAnswerTime, std::move(done)});
}

void StoreRequests::Poll() {
  std::vector<Pending> before = std::exchange(pending_, {});
  for (Pending& pending : before) {
    const auto [is_over, error] = Look(pending);
    if (is_over) {
      pending.done(error, {});
    } else {
      pending_.push_back(std::move(pending));
    }
  }
}

std::pair<bool, std::string> StoreRequests::Look(const Pending& pending) {
  const bool is_late = std::chrono::steady_clock::now() >= pending.deadline;
  try {
    const auto answer = store_->Ask([number = pending.number, is_late](messages::StoreView* store) {
      return AnswerTo(store, number, is_late);
    });
    if (answer) return {true, answer->done ? "" : answer->outcome};
    return {is_late,
            "the program has not answered within 5 s, so the request was taken back; it answers "
            "only while it calls its blocks"};
  } catch (const std::exception& error) {
    return {is_late, error.what()};  // the disk may answer later
  }
}

}  // namespace corvane::bench
