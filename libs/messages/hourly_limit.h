// SPDX-License-Identifier: MIT
// How many messages went out within the last hour.
#pragma once

#include <cstdint>
#include <deque>

#include "libs/messages/now.h"

namespace messages {

class HourlyLimit {
 public:
  /// A message went out. The times are passed in rising order; those of an earlier run come first.
  void Count(SteadyTime when) { times_.push_back(when); }
  /// Whether another one may go out now.
  [[nodiscard]] bool Allows(std::int64_t per_hour, SteadyTime now) {
    while (!times_.empty() && now - times_.front() >= std::chrono::hours(1)) times_.pop_front();
    return static_cast<std::int64_t>(times_.size()) < per_hour;
  }

 private:
  std::deque<SteadyTime> times_;  // of the last hour: bounded by what a modem can send in it
};

}  // namespace messages
