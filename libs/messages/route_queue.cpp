// SPDX-License-Identifier: MIT
#include "libs/messages/route_queue.h"

#include <algorithm>

#include "libs/messages/retry_times.h"

namespace messages {
namespace {

constexpr int kFailuresOfARoute = 3;  // in a row, of different messages or one
constexpr int kAttemptsOfARound = 3;
constexpr int kDelayedPerCall = 1000;  // a call stays short even if all come due together

}  // namespace

RouteQueue::Turn RouteQueue::TurnOf(const Message& message) {
  return {!message.urgent, message.attempts / kAttemptsOfARound, message.id};
}

void RouteQueue::Add(const Message& message, SteadyTime not_before, SteadyTime now) {
  const Turn turn = TurnOf(message);
  if (not_before <= now) {
    ready_.insert(turn);
  } else {
    delayed_.emplace(not_before, turn);
  }
}

void RouteQueue::Remove(const Message& message, SteadyTime not_before) {
  const Turn turn = TurnOf(message);
  if (ready_.erase(turn) == 0) delayed_.erase({not_before, turn});
}

std::optional<std::int64_t> RouteQueue::Next(std::int64_t limit_per_hour, SteadyTime now) {
  for (int i = 0; i < kDelayedPerCall && !delayed_.empty(); ++i) {
    const auto first = delayed_.begin();
    if (first->first > now) break;
    ready_.insert(first->second);
    delayed_.erase(first);
  }
  if (ready_.empty() || (held_until_ && now < *held_until_)) return std::nullopt;
  const auto [not_urgent, round, id] = *ready_.begin();
  limited = not_urgent && !limit_.Allows(limit_per_hour, now);
  return limited ? std::nullopt : std::optional(id);
}

SteadyTime RouteQueue::Hold(SteadyTime now) {
  last_failure_ = now;
  held_until_ = now + RetryDelay(++holds_);
  shortens_ = true;
  return *held_until_;
}

void RouteQueue::HoldFor(std::chrono::milliseconds pause, SteadyTime now) {
  held_until_ = now + pause;
  shortens_ = false;
}

SteadyTime RouteQueue::NoteFailure(SteadyTime not_before, SteadyTime now) {
  last_failure_ = now;
  return ++failures_ < kFailuresOfARoute ? not_before : std::max(not_before, Hold(now));
}

void RouteQueue::Release() {
  held_until_.reset();
  holds_ = 0;
  failures_ = 0;
}

void RouteQueue::Shorten(SteadyTime now) {
  if (!held_until_ || !shortens_) return;
  held_until_ = std::min(*held_until_, std::max(now, last_failure_ + RetryDelay(1)));
}

}  // namespace messages
