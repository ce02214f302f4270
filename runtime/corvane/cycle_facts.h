// SPDX-License-Identifier: MIT
// What the scan knows of a cycle that has just ended.
#pragma once

#include <cstdint>

#include "runtime/corvane/duration.h"
#include "runtime/corvane/scan_clock.h"

namespace corvane {

struct CycleFacts {
  ScanClock::TimePoint end;    ///< of the cycle
  Nanoseconds duration{0};     ///< of the program's `cycle()`
  Nanoseconds lateness{0};     ///< from the deadline to the start
  std::uint64_t overruns = 0;  ///< cycles since the start that were still running when the next
                               ///< was due
};

}  // namespace corvane
