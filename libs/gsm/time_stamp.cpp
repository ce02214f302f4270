// SPDX-License-Identifier: MIT
#include "libs/gsm/time_stamp.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace gsm {
namespace {

/// Two digits, the low one in the high half.
int SwappedDigits(OctetReader& in) noexcept {
  const int octet = in.Next();
  const int tens = octet & 0x0F;
  const int ones = octet >> 4;
  if (tens > 9 || ones > 9) in.Refuse(PduError::kBadDigit);
  return in.error() == PduError::kNone ? 10 * tens + ones : 0;
}

void WriteSwapped(int value, Octets& out) {
  out.push_back(static_cast<std::uint8_t>((value % 10) << 4 | (value / 10 % 10)));
}

/// Takes exactly `digits` decimal digits off the front of `text`; false if they are not there.
bool TakeNumber(std::string_view& text, std::size_t digits, int& value) {
  const std::string_view number = text.substr(0, digits);
  if (number.size() != digits || number.find_first_not_of("0123456789") != std::string_view::npos) {
    return false;
  }
  std::from_chars(number.data(), number.data() + digits, value);
  text.remove_prefix(digits);
  return true;
}

bool TakeCharacter(std::string_view& text, char character) {
  if (!text.starts_with(character)) return false;
  text.remove_prefix(1);
  return true;
}

/// "Z", "+hh:mm", "-hh:mm" or nothing, to the end of `text`.
bool TakeZone(std::string_view text, int& minutes) {
  if (text.empty() || text == "Z") return true;
  const int sign = text.starts_with('-') ? -1 : 1;
  if (!TakeCharacter(text, '+') && !TakeCharacter(text, '-')) return false;
  int hours = 0;
  int rest = 0;
  if (!TakeNumber(text, 2, hours) || !TakeCharacter(text, ':') || !TakeNumber(text, 2, rest)) {
    return false;
  }
  minutes = sign * (60 * hours + rest);
  return text.empty() && hours <= 14 && rest < 60 && rest % 15 == 0;
}

}  // namespace

bool IsValid(const TimeStamp& time) noexcept {
  const std::chrono::year_month_day date(std::chrono::year(time.year),
                                         std::chrono::month(static_cast<unsigned>(time.month)),
                                         std::chrono::day(static_cast<unsigned>(time.day)));
  return date.ok() && time.year >= 2000 && time.year <= 2099 && time.hour < 24 &&
         time.minute < 60 && time.second < 60;
}

int UtcOffsetMinutes(OctetReader& in) noexcept {
  const int raw = in.Next();
  const int tens = raw & 0x07;  // the low half travels first; bit 3 is the sign
  const int ones = raw >> 4;
  if (ones > 9) in.Refuse(PduError::kBadDigit);
  if (in.error() != PduError::kNone) return 0;
  const int minutes = 15 * (10 * tens + ones);
  return (raw & 0x08) != 0 ? -minutes : minutes;
}

TimeStamp ReadTimeStamp(OctetReader& in) noexcept {
  TimeStamp time;
  time.year = 2000 + SwappedDigits(in);
  time.month = SwappedDigits(in);
  time.day = SwappedDigits(in);
  time.hour = SwappedDigits(in);
  time.minute = SwappedDigits(in);
  time.second = SwappedDigits(in);
  time.utc_offset_minutes = UtcOffsetMinutes(in);
  if (in.error() != PduError::kNone) time.month = 0;
  return time;
}

void WriteTimeStamp(const TimeStamp& time, Octets& out) {
  for (const int value :
       {time.year % 100, time.month, time.day, time.hour, time.minute, time.second}) {
    WriteSwapped(value, out);
  }
  WriteSwapped(std::abs(time.utc_offset_minutes) / 15, out);
  if (time.utc_offset_minutes < 0) out.back() |= 0x08;
}

TimeStamp ToTimeStamp(std::chrono::system_clock::time_point time, int utc_offset_minutes) {
  using std::chrono::floor;
  const auto local = floor<std::chrono::seconds>(time) + std::chrono::minutes(utc_offset_minutes);
  const auto midnight = floor<std::chrono::days>(local);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(local - midnight);
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(clock.hours().count()),
          static_cast<int>(clock.minutes().count()),
          static_cast<int>(clock.seconds().count()),
          utc_offset_minutes};
}

std::chrono::sys_seconds ToTime(const TimeStamp& time) {
  using std::chrono::minutes;
  const std::chrono::sys_days month(std::chrono::year(time.year) /
                                    std::chrono::month(static_cast<unsigned>(time.month)) / 1);
  return month + std::chrono::days(time.day - 1) + std::chrono::hours(time.hour) +
         minutes(time.minute - time.utc_offset_minutes) + std::chrono::seconds(time.second);
}

std::optional<TimeStamp> ParseTimeStamp(std::string_view text) {
  TimeStamp time;
  const bool complete = TakeNumber(text, 4, time.year) && TakeCharacter(text, '-') &&
                        TakeNumber(text, 2, time.month) && TakeCharacter(text, '-') &&
                        TakeNumber(text, 2, time.day) && TakeCharacter(text, 'T') &&
                        TakeNumber(text, 2, time.hour) && TakeCharacter(text, ':') &&
                        TakeNumber(text, 2, time.minute) && TakeCharacter(text, ':') &&
                        TakeNumber(text, 2, time.second) && TakeZone(text, time.utc_offset_minutes);
  if (!complete || !IsValid(time)) return std::nullopt;
  return time;
}

std::string FormatTimeStamp(const TimeStamp& time) {
  const int offset = std::abs(time.utc_offset_minutes);
  char text[128];  // room for eight int of any value
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", time.year,
                time.month, time.day, time.hour, time.minute, time.second,
                time.utc_offset_minutes < 0 ? '-' : '+', offset / 60, offset % 60);
  return text;
}

}  // namespace gsm
