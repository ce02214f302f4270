// SPDX-License-Identifier: MIT
#include "runtime/corvane/scan.h"

#include <mutex>

namespace corvane {
namespace {

/// Adds a cycle to the statistics, even if it ends with an exception.
class CycleMeasurement {
 public:
  CycleMeasurement(CycleStatistics& statistics, ScanClock& clock, ScanClock::TimePoint deadline)
      : statistics_(statistics), clock_(clock), deadline_(deadline), start_(clock.Now()) {}
  CycleMeasurement(const CycleMeasurement&) = delete;
  CycleMeasurement& operator=(const CycleMeasurement&) = delete;
  ~CycleMeasurement() { statistics_.AddCycle(clock_.Now() - start_, start_ - deadline_); }

 private:
  CycleStatistics& statistics_;
  ScanClock& clock_;
  ScanClock::TimePoint deadline_;
  ScanClock::TimePoint start_;
};

}  // namespace

void Scan::Run(const std::function<bool(std::uint64_t)>& cycle,
               const std::function<void()>& report) {
  ScanClock::TimePoint deadline = clock_.Now();
  for (;;) {
    switch (clock_.WaitUntil(deadline)) {
      case ScanClock::Wake::kStop: return;
      case ScanClock::Wake::kStatistics: report(); continue;
      case ScanClock::Wake::kDeadline: break;
    }
    if (!RunCycle(cycle, deadline)) return;
    if (options_.cycles != 0 && statistics_.cycles() >= options_.cycles) return;
    deadline = NextDeadline(deadline, clock_.Now());
  }
}

bool Scan::RunCycle(const std::function<bool(std::uint64_t)>& cycle,
                    ScanClock::TimePoint deadline) {
  const std::lock_guard guard(lock_);
  const CycleMeasurement measurement(statistics_, clock_, deadline);
  return cycle(statistics_.cycles() + 1);
}

ScanClock::TimePoint Scan::NextDeadline(ScanClock::TimePoint deadline, ScanClock::TimePoint now) {
  if (options_.period <= Nanoseconds(0)) return now;
  const ScanClock::TimePoint next = deadline + options_.period;
  if (next >= now) return next;
  statistics_.AddOverrun();
  overrun_log_.Note(statistics_.cycles(), now, now - deadline, options_.period);
  const auto left_out = (now - next + options_.period - Nanoseconds(1)) / options_.period;
  return next + left_out * options_.period;
}

}  // namespace corvane
