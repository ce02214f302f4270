// SPDX-License-Identifier: MIT
// How long the cycles of a program took and how late they began. Threads: the PLC task.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>

#include "runtime/corvane/duration.h"

namespace corvane {

/// Counts durations in classes of constant relative width, so that a quantile of years of cycles
/// takes constant memory. Error of a quantile: at most 1/32 above the true value.
class DurationHistogram {
 public:
  void Add(Nanoseconds duration);
  /// The least class bound that `share` (0..1) of the durations do not exceed; 0 if there are none.
  [[nodiscard]] Nanoseconds Quantile(double share) const;

 private:
  static constexpr unsigned kSubBits = 5;  // 32 classes for every power of two
  static constexpr std::size_t kClasses = (64 - kSubBits + 1) << kSubBits;
  static std::size_t ClassOf(std::uint64_t nanoseconds);
  static std::uint64_t UpperBound(std::size_t index);

  std::array<std::uint64_t, kClasses> counts_{};
  std::uint64_t total_ = 0;
};

class CycleStatistics {
 public:
  /// @param duration how long the program's `cycle()` took
  /// @param lateness time from the cycle's deadline to its start
  void AddCycle(Nanoseconds duration, Nanoseconds lateness);
  /// A cycle that was still running when the next one was due.
  void AddOverrun() { ++overruns_; }

  [[nodiscard]] std::uint64_t cycles() const { return cycles_; }
  [[nodiscard]] std::uint64_t overruns() const { return overruns_; }
  /// One line for the log.
  [[nodiscard]] std::string Summary() const;

 private:
  DurationHistogram durations_;
  DurationHistogram latenesses_;
  std::uint64_t cycles_ = 0;
  std::uint64_t overruns_ = 0;
  Nanoseconds sum_{0};
  Nanoseconds shortest_{0};
  Nanoseconds longest_{0};
  Nanoseconds latest_{0};
};

}  // namespace corvane
