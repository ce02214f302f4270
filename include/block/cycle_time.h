// SPDX-License-Identifier: MIT
// The time at which the current cycle began, on any runtime. Threads: any.
#pragma once

#include <chrono>

#include "corvane/program.h"

/// Seconds on a clock that is never set. Time stands still within a cycle where the runtime can say
/// when it began (CorvaneCycleClock).
inline double CycleClock() {
  if (CorvaneCycleClock != nullptr) return CorvaneCycleClock();
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

/// Seconds since 1970-01-01 UTC; may jump when the system's clock is set.
inline double CycleNow() {
  if (CorvaneCycleNow != nullptr) return CorvaneCycleNow();
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}
