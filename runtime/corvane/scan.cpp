// SPDX-License-Identifier: MIT
#include "runtime/corvane/scan.h"

#include <mutex>

namespace corvane {
namespace {

/// Adds a cycle to the statistics, even if it ends with an exception.
class CycleMeasurement {
 public:
  /// @param facts what is known of the cycle when this object is destroyed
  CycleMeasurement(CycleStatistics& statistics, ScanClock& clock, ScanClock::TimePoint deadline,
                   CycleFacts& facts)
      : statistics_(statistics),
        clock_(clock),
        deadline_(deadline),
        start_(clock.Now()),
        facts_(facts) {}
  CycleMeasurement(const CycleMeasurement&) = delete;
  CycleMeasurement& operator=(const CycleMeasurement&) = delete;
  ~CycleMeasurement() {
    facts_.end = clock_.Now();
    facts_.duration = facts_.end - start_;
    facts_.lateness = start_ - deadline_;
    facts_.overruns = statistics_.overruns();
    statistics_.AddCycle(facts_.duration, facts_.lateness);
  }

 private:
  CycleStatistics& statistics_;
  ScanClock& clock_;
  ScanClock::TimePoint deadline_;
  ScanClock::TimePoint start_;
  CycleFacts& facts_;
};

}  // namespace

void Scan::Run(const std::function<bool(std::uint64_t)>& cycle, const std::function<void()>& report,
               const std::function<void(const CycleFacts&)>& after) {
  ScanClock::TimePoint deadline = clock_.Now();
  for (;;) {
    switch (clock_.WaitUntil(deadline)) {
      case ScanClock::Wake::kStop: return;
      case ScanClock::Wake::kStatistics: report(); continue;
      case ScanClock::Wake::kDeadline: break;
    }
    if (!RunCycle(cycle, after, deadline)) return;
    if (options_.cycles != 0 && statistics_.cycles() >= options_.cycles) return;
    deadline = NextDeadline(deadline, clock_.Now());
  }
}

bool Scan::RunCycle(const std::function<bool(std::uint64_t)>& cycle,
                    const std::function<void(const CycleFacts&)>& after,
                    ScanClock::TimePoint deadline) {
  const std::lock_guard guard(lock_);
  CycleFacts facts;
  const bool goes_on = [&] {
    const CycleMeasurement measurement(statistics_, clock_, deadline, facts);
    return cycle(statistics_.cycles() + 1);
  }();
  after(facts);
  return goes_on;
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
