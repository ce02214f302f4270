// SPDX-License-Identifier: MIT
// The time that a program, and its blocks, see: one point for each cycle.
// Threads: the PLC task sets it, any thread may ask (corvane/program.h).
#pragma once

namespace corvane {

/// One point in time on both clocks, in seconds.
struct CycleTime {
  double clock;  ///< monotonic, as plc.clock()
  double now;    ///< since 1970-01-01 UTC, as plc.now

  /// The clocks as they are.
  [[nodiscard]] static CycleTime Read();
};

/// Makes `time` the answer of CorvaneCycleClock() and CorvaneCycleNow() until the next call.
void SetCycleTime(const CycleTime& time);

/// While it lives, the time stands still between two calls of SetCycleTime, first at the time of
/// its creation; otherwise the clocks are read each time. One at a time.
class StandingTime {
 public:
  StandingTime();
  StandingTime(const StandingTime&) = delete;
  StandingTime& operator=(const StandingTime&) = delete;
  ~StandingTime();
};

}  // namespace corvane
