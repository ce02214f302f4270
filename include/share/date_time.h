// SPDX-License-Identifier: MIT
// What OpcUa_DateTime counts: 100 ns ticks since 1601-01-01 00:00 UTC (OPC 10000-6, DateTime).
// Constant data.
#pragma once

#include <cstdint>

namespace corvane {

inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
/// 1970-01-01, where Unix time begins, in seconds and in ticks since 1601-01-01.
inline constexpr std::int64_t kUnixEpochSeconds = 11'644'473'600;
inline constexpr std::int64_t kUnixEpochTicks = kUnixEpochSeconds * kTicksPerSecond;

}  // namespace corvane
