// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace corvane {

std::size_t DurationHistogram::ClassOf(std::uint64_t nanoseconds) {
  const auto bits = static_cast<unsigned>(std::bit_width(nanoseconds));
  const unsigned shift = bits > kSubBits + 1 ? bits - kSubBits - 1 : 0;
  // Below 2^(kSubBits + 1) each value has its own class; above, its top kSubBits + 1 bits select
  // it.
  return (static_cast<std::size_t>(shift) << kSubBits) +
         static_cast<std::size_t>(nanoseconds >> shift);
}

std::uint64_t DurationHistogram::UpperBound(std::size_t index) {
  constexpr std::size_t kExact = std::size_t{2} << kSubBits;
  if (index < kExact) return index;
  const std::size_t shift = (index >> kSubBits) - 1;
  const std::uint64_t top = index - (shift << kSubBits);
  return ((top + 1) << shift) - 1;
}

void DurationHistogram::Add(Nanoseconds duration) {
  ++counts_[ClassOf(static_cast<std::uint64_t>(std::max<std::int64_t>(duration.count(), 0)))];
  ++total_;
}

Nanoseconds DurationHistogram::Quantile(double share) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(total_)));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    seen += counts_[i];
    if (counts_[i] != 0 && seen >= wanted) {
      return Nanoseconds(static_cast<std::int64_t>(UpperBound(i)));
    }
  }
  return Nanoseconds(0);
}

void CycleStatistics::AddCycle(Nanoseconds duration, Nanoseconds lateness) {
  shortest_ = cycles_ == 0 ? duration : std::min(shortest_, duration);
  longest_ = std::max(longest_, duration);
  latest_ = std::max(latest_, lateness);
  sum_ += duration;
  durations_.Add(duration);
  latenesses_.Add(lateness);
  ++cycles_;
}

std::string CycleStatistics::Summary() const {
  const Nanoseconds mean =
      cycles_ == 0 ? Nanoseconds(0) : sum_ / static_cast<std::int64_t>(cycles_);
  // A class bound may be above the longest value itself.
  const Nanoseconds p99 = std::min(durations_.Quantile(0.99), longest_);
  const Nanoseconds late_p99 = std::min(latenesses_.Quantile(0.99), latest_);
  return fmt::format(
      "{} cycles, {} overruns; cycle time min {} mean {} p99 {} max {}; started late p99 {} max {}",
      cycles_, overruns_, FormatDuration(shortest_), FormatDuration(mean), FormatDuration(p99),
      FormatDuration(longest_), FormatDuration(late_p99), FormatDuration(latest_));
}

}  // namespace corvane
