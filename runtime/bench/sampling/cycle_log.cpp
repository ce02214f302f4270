// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/cycle_log.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace corvane::bench {
namespace {

double Seconds(Nanoseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

double UnixTime() {
  return Seconds(std::chrono::system_clock::now().time_since_epoch());
}

}  // namespace

void CycleLog::Add(const CycleFacts& facts) {
  if (totals_.cycles == 0) span_end_ = facts.end + kSpan;
  if (facts.end >= span_end_) EndSpan(facts);
  const double duration = Seconds(facts.duration);
  const auto bound = std::ranges::lower_bound(kCycleBounds, duration);
  ++totals_.histogram[static_cast<std::size_t>(bound - kCycleBounds.begin())];
  ++totals_.cycles;
  totals_.sum += duration;
  totals_.longest = std::max(totals_.longest, duration);
  ++span_cycles_;
  span_sum_ += duration;
  span_.longest = std::max(span_.longest, duration);
  span_.latest = std::max(span_.latest, Seconds(facts.lateness));
  span_.overruns += facts.overruns - totals_.overruns;
  totals_.overruns = facts.overruns;
}

void CycleLog::EndSpan(const CycleFacts& facts) {
  span_end_ = facts.end + kSpan;
  span_.time = UnixTime();
  span_.mean = span_sum_ / static_cast<double>(std::max<std::uint64_t>(span_cycles_, 1));
  if (waiting_.size() < kMostSpans) waiting_.push_back(span_);
  span_ = {};
  span_sum_ = 0;
  span_cycles_ = 0;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return;  // with the next one, then
  published_ = totals_;
  for (const CycleSpan& span : std::exchange(waiting_, {})) spans_.push_back(span);
  while (spans_.size() > kMostSpans) spans_.pop_front();
}

CycleReport CycleLog::Report() const {
  const std::lock_guard guard(mutex_);
  CycleReport report = published_;
  report.last.assign(spans_.begin(), spans_.end());
  return report;
}

}  // namespace corvane::bench
