// SPDX-License-Identifier: MIT
// Calendar fields to OPC UA time. Implemented by corvaneshare.so; no shared state.
#pragma once

#include <cstdint>

/// Calendar fields of the proleptic Gregorian calendar, UTC.
struct RTime {
  std::uint16_t year;  ///< with the century
  std::uint16_t month;
  std::uint16_t day;
  std::uint16_t hour;
  std::uint16_t minute;
  std::uint16_t second;
  std::uint16_t millisecond;
};

/// 100 ns ticks since 1601-01-01 00:00 UTC. Fields out of their range carry over into the next
/// larger one (month 13 is January of the next year, day 0 the last day of the month before), since
/// the octets of a time stamp are not checked. A time before 1601 yields 0, the null time; one
/// beyond the range, which ends in the year 30828, yields the greatest value. Calculates in 64 bits
/// and never through the C library's time_t.
extern "C" std::int64_t RTimeToFileTime(const RTime* time);
