// SPDX-License-Identifier: MIT
// Collects a CycleReport. Threads: Add the PLC task; Report any. Add never waits.
#pragma once

#include <deque>
#include <mutex>

#include "runtime/bench/sampling/cycle_report.h"
#include "runtime/corvane/cycle_facts.h"

namespace corvane::bench {

class CycleLog {
 public:
  void Add(const CycleFacts& facts);
  /// Spans that have ended; totals as of the end of the last one.
  [[nodiscard]] CycleReport Report() const;

  static constexpr Nanoseconds kSpan{200'000'000};
  static constexpr std::size_t kMostSpans = 3000;  ///< ten minutes

 private:
  void EndSpan(const CycleFacts& facts);

  // The PLC task's.
  CycleReport totals_;
  CycleSpan span_;
  double span_sum_ = 0;
  std::uint64_t span_cycles_ = 0;
  ScanClock::TimePoint span_end_{};
  std::vector<CycleSpan> waiting_;

  mutable std::mutex mutex_;  // what follows; held for moments
  CycleReport published_;     // without `last`
  std::deque<CycleSpan> spans_;
};

}  // namespace corvane::bench
