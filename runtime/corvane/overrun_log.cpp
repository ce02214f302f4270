// SPDX-License-Identifier: MIT
#include "runtime/corvane/overrun_log.h"

#include <spdlog/spdlog.h>

#include <algorithm>

namespace corvane {

void OverrunLog::Note(std::uint64_t number, ScanClock::TimePoint now, Nanoseconds taken,
                      Nanoseconds period) {
  ++count_;
  longest_ = std::max(longest_, taken);
  if (logged_ && now - *logged_ < std::chrono::minutes(1)) return;
  if (count_ == 1) {
    spdlog::warn("overrun: cycle {} ended {} after its start was due; the period is {}", number,
                 FormatDuration(taken), FormatDuration(period));
  } else {
    spdlog::warn(
        "{} more overruns since the last such line; the longest cycle ended {} after its start was "
        "due; the period is {}",
        count_, FormatDuration(longest_), FormatDuration(period));
  }
  logged_ = now;
  count_ = 0;
  longest_ = Nanoseconds(0);
}

}  // namespace corvane
