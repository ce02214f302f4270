// SPDX-License-Identifier: MIT
#include "runtime/bench/server/store_requests.h"

#include <fmt/format.h>

#include <exception>
#include <stdexcept>
#include <string>

namespace corvane::bench {
namespace {

// A program looks for requests twice a second.
constexpr std::chrono::seconds kAnswerTime(5);
constexpr std::size_t kMostPending = 64;

}  // namespace

void StoreRequests::Ask(const MessageRequest& request, RequestDone done) {
  if (pending_.size() >= kMostPending) return done("too many requests wait for the program", {});
  try {
    messages::StoreView* const store = store_->Open();
    if (store == nullptr) return done("the program has no store of messages", {});
    if (!store->FindOutgoing(request.message)) {
      const bool is_incoming = store->FindIncoming(request.message).has_value();
      return done(fmt::format(fmt::runtime(is_incoming ? "message {} was received, not sent"
                                                       : "there is no message {}"),
                              request.message),
                  {});
    }
    const auto kind =
        request.retry ? messages::RequestKind::kRetry : messages::RequestKind::kCancel;
    pending_.push_back({store->AddRequest(kind, request.message, 0),
                        std::chrono::steady_clock::now() + kAnswerTime, std::move(done)});
  } catch (const std::exception& error) {
    store_->Close();
    done(error.what(), {});
  }
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
  try {
    messages::StoreView* const store = store_->Open();
    if (store == nullptr) throw std::runtime_error("the store of messages cannot be read");
    auto answer = store->AnswerTo(pending.number);
    const bool is_late = std::chrono::steady_clock::now() >= pending.deadline;
    if (!answer && is_late && !store->Withdraw(pending.number)) {
      answer = store->AnswerTo(pending.number);
    }
    if (answer) return {true, answer->done ? "" : answer->outcome};
    return {is_late,
            "the program has not answered within 5 s, so the request was taken back; it answers "
            "only while it calls its blocks"};
  } catch (const std::exception& error) {
    store_->Close();
    return {true, error.what()};
  }
}

}  // namespace corvane::bench
