// SPDX-License-Identifier: MIT
// The time, as the models of messages take it: a pair of clocks, read once for each piece of work.
#pragma once

#include <chrono>

#include "libs/messages/row.h"

namespace messages {

/// Deadlines within a run follow `steady`: a controller's clock may jump by decades when the
/// network sets it. Only what is on the disk is `wall` time.
struct Now {
  std::chrono::steady_clock::time_point steady;
  WallTime wall;

  [[nodiscard]] static Now Get() {
    return {std::chrono::steady_clock::now(),
            std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())};
  }
  [[nodiscard]] bool clock_is_set() const { return wall >= kClockIsSet; }
};

using SteadyTime = std::chrono::steady_clock::time_point;

}  // namespace messages
