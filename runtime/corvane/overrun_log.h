// SPDX-License-Identifier: MIT
// Overruns in the log as they happen, without filling it. Threads: the PLC task.
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/corvane/duration.h"
#include "runtime/corvane/scan_clock.h"

namespace corvane {

class OverrunLog {
 public:
  /// An overrun: cycle `number` ended at `now`, this long after its start was due, which is more
  /// than the period. Logged at once, but at most once a minute; overruns in between are counted.
  void Note(std::uint64_t number, ScanClock::TimePoint now, Nanoseconds taken, Nanoseconds period);

 private:
  std::optional<ScanClock::TimePoint> logged_;
  std::uint64_t count_ = 0;  // since then
  Nanoseconds longest_{0};
};

}  // namespace corvane
