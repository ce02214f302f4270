// SPDX-License-Identifier: MIT
// The topic "cycle": how long the cycles take. Threads: the server's.
#pragma once

#include <cstdint>

#include "runtime/bench/sampling/bench.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

class CycleTopic : public Topic {
 public:
  /// @param bench outlives this object
  /// @param period time from one cycle to the next, in seconds
  CycleTopic(const Bench& bench, double period) : bench_(bench), period_(period) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  /// With the spans that ended after this time, in seconds since 1970.
  [[nodiscard]] Frame FrameOf(const CycleReport& report, double after) const;

  const Bench& bench_;
  double period_;
  CycleReport report_;  // as it was sent last
};

}  // namespace corvane::bench
