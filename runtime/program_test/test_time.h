// SPDX-License-Identifier: MIT
// The time that a test sets, as the models of messages take it. Pure functions.
#pragma once

#include <chrono>
#include <cmath>

#include "block/block_time.h"

namespace corvane::program_test {

inline std::chrono::milliseconds ToMilliseconds(double seconds) {
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

/// A point on the test's steady clock.
inline std::chrono::steady_clock::time_point ToSteady(double seconds) {
  return std::chrono::steady_clock::time_point(ToMilliseconds(seconds));
}

/// Seconds since 1970 as a block's DATE_AND_TIME.
inline BlockTime ToBlockTime(double seconds) {
  return BlockTime(std::chrono::duration_cast<BlockTime::duration>(ToMilliseconds(seconds)));
}

}  // namespace corvane::program_test
