// SPDX-License-Identifier: MIT
// The service-centre time stamp of an SMS PDU (3GPP TS 23.040 clause 9.2.3.11).
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// Local time of the service centre. The fields are kept as they come, even a month of 13.
struct TimeStamp {
  int year = 2000;  ///< 2000..2099: the wire holds two digits
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int utc_offset_minutes = 0;  ///< local time minus UTC, -1185..1185, whole quarters

  bool operator==(const TimeStamp&) const = default;
};

/// Local time minus UTC, in minutes (-1185..1185, whole quarters), from the time-zone octet of a
/// time stamp (swapped digits, quarters of an hour, sign in bit 3).
/// Errors: kTruncated, kBadDigit; the value is then 0.
[[nodiscard]] int UtcOffsetMinutes(OctetReader& in) noexcept;

/// Whether the fields are those of a time that exists.
[[nodiscard]] bool IsValid(const TimeStamp& time) noexcept;

/// Seven octets. Errors: kTruncated, kBadDigit; the time is then not valid.
[[nodiscard]] TimeStamp ReadTimeStamp(OctetReader& in) noexcept;
void WriteTimeStamp(const TimeStamp& time, Octets& out);

/// The same instant, as a clock that is `utc_offset_minutes` ahead of UTC shows it.
[[nodiscard]] TimeStamp ToTimeStamp(std::chrono::system_clock::time_point time,
                                    int utc_offset_minutes);

/// The instant. If `time` is not valid, an instant near it.
[[nodiscard]] std::chrono::sys_seconds ToTime(const TimeStamp& time);

/// From "2026-01-31T12:00:00+01:00", "...Z" or without a zone, which means UTC; years 2000..2099.
/// nullopt for anything else and for days that do not exist.
[[nodiscard]] std::optional<TimeStamp> ParseTimeStamp(std::string_view text);

/// "2026-01-31T12:00:00+01:00".
[[nodiscard]] std::string FormatTimeStamp(const TimeStamp& time);

}  // namespace gsm
