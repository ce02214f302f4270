// SPDX-License-Identifier: MIT
// How long the cycles of a program took lately: plain data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::bench {

/// The cycles that ended within 200 ms.
struct CycleSpan {
  double time = 0;     ///< its end, in seconds since 1970-01-01 UTC
  double mean = 0;     ///< duration in seconds
  double longest = 0;  ///< duration in seconds
  double latest = 0;   ///< longest delay of a start, in seconds
  std::uint64_t overruns = 0;
};

/// Upper bounds of the histogram's classes in seconds; one more class holds the longer cycles.
inline constexpr std::array<double, 19> kCycleBounds{1e-5, 2e-5, 5e-5, 1e-4, 2e-4, 5e-4, 1e-3,
                                                     2e-3, 5e-3, 1e-2, 2e-2, 5e-2, 0.1,  0.2,
                                                     0.5,  1,    2,    5,    10};

struct CycleReport {
  std::uint64_t cycles = 0;
  std::uint64_t overruns = 0;
  double sum = 0;                                                  ///< of all durations, in seconds
  double longest = 0;                                              ///< duration in seconds
  std::array<std::uint64_t, kCycleBounds.size() + 1> histogram{};  ///< cycles in each class
  std::vector<CycleSpan> last;  ///< the oldest first; those of the last ten minutes at most
};

}  // namespace corvane::bench
