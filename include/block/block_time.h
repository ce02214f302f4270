// SPDX-License-Identifier: MIT
// DATE_AND_TIME as a block's code handles it: points on the system's clock, in UTC.
// Constant data and pure functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <ratio>

#include "opcua/opcua.h"
#include "share/date_time.h"

/// A point in time since 1970-01-01 UTC, as fine as a DATE_AND_TIME; std::chrono's coarser points
/// convert to it implicitly.
using BlockTime =
    std::chrono::sys_time<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>;

/// The value of a DATE_AND_TIME variable. Nothing, a time before 1601 and one beyond the range,
/// which ends in the year 30828, yield 0, the null time.
constexpr OpcUa_DateTime ToDateTime(std::optional<BlockTime> time) {
  constexpr std::int64_t kLast =
      std::numeric_limits<std::int64_t>::max() - corvane::kUnixEpochTicks;
  if (!time.has_value()) return 0;
  const std::int64_t since_1970 = time->time_since_epoch().count();
  if (since_1970 < -corvane::kUnixEpochTicks || since_1970 > kLast) return 0;
  return since_1970 + corvane::kUnixEpochTicks;
}

/// The point in time of a DATE_AND_TIME variable's value; nothing for the null time.
constexpr std::optional<BlockTime> FromDateTime(OpcUa_DateTime ticks) {
  if (ticks <= 0) return std::nullopt;
  return BlockTime(BlockTime::duration(ticks - corvane::kUnixEpochTicks));
}
