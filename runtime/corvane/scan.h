// SPDX-License-Identifier: MIT
// The scan: one cycle after another, each at its time. Threads: the PLC task.
#pragma once

#include <cstdint>
#include <functional>

#include "runtime/corvane/cycle_facts.h"
#include "runtime/corvane/cycle_statistics.h"
#include "runtime/corvane/duration.h"
#include "runtime/corvane/overrun_log.h"
#include "runtime/corvane/scan_clock.h"
#include "runtime/corvane/scan_lock.h"

namespace corvane {

struct ScanOptions {
  Nanoseconds period{std::chrono::milliseconds(100)};  ///< 0: without a pause
  std::uint64_t cycles = 0;                            ///< end after this number; 0: no limit
};

/// Runs cycles until one asks to stop, the number of cycles is reached or the clock says stop.
///
/// Deadlines are absolute: the k-th possible start is the first one plus k periods, so the period
/// does not drift. A cycle that is still running when the next one is due is an overrun; the starts
/// that it covered are left out, never made up for in a burst.
class Scan {
 public:
  /// @param lock held during each cycle and released in between
  Scan(const ScanOptions& options, ScanClock& clock, ScanLock& lock)
      : options_(options), clock_(clock), lock_(lock) {}

  /// @param cycle called with the number of the cycle, from 1; false ends the scan. An
  ///   exception from it ends the scan, too, with the lock released and the cycle counted.
  /// @param report called when the clock says that statistics are wanted
  /// @param after called at the end of each cycle, with the lock held; what it takes is not in the
  ///   duration of the cycle, but in the time to the next one
  void Run(
      const std::function<bool(std::uint64_t)>& cycle, const std::function<void()>& report,
      const std::function<void(const CycleFacts&)>& after = [](const CycleFacts&) {});

  [[nodiscard]] const CycleStatistics& statistics() const { return statistics_; }

 private:
  [[nodiscard]] bool RunCycle(const std::function<bool(std::uint64_t)>& cycle,
                              const std::function<void(const CycleFacts&)>& after,
                              ScanClock::TimePoint deadline);
  /// The next start after `now`; counts and logs an overrun.
  [[nodiscard]] ScanClock::TimePoint NextDeadline(ScanClock::TimePoint deadline,
                                                  ScanClock::TimePoint now);

  ScanOptions options_;
  ScanClock& clock_;
  ScanLock& lock_;
  CycleStatistics statistics_;
  OverrunLog overrun_log_;
};

}  // namespace corvane
