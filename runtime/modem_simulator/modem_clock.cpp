// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/modem_clock.h"

#include <fmt/format.h>

namespace modem_simulator {
namespace {

constexpr std::size_t kTimeLength = 17;  // "26/01/31,12:00:00"
constexpr std::size_t kZoneLength = 3;   // "+04"

/// Quarters of an hour as ISO 8601 writes a zone: "+01:00"; unchanged if they are not quarters.
std::string IsoZone(std::string_view quarters) {
  if (quarters.find_first_not_of("0123456789", 1) != std::string_view::npos) {
    return std::string(quarters);
  }
  const int count = 10 * (quarters[1] - '0') + (quarters[2] - '0');
  return fmt::format("{}{:02}:{:02}", quarters[0], count / 4, count % 4 * 15);
}

}  // namespace

std::string FormatModemTime(const gsm::TimeStamp& time) {
  return fmt::format("{:02}/{:02}/{:02},{:02}:{:02}:{:02}{:+03}", time.year % 100, time.month,
                     time.day, time.hour, time.minute, time.second, time.utc_offset_minutes / 15);
}

std::optional<gsm::TimeStamp> ParseModemTime(std::string_view text) {
  const bool has_zone = text.size() == kTimeLength + kZoneLength;
  if (!has_zone && text.size() != kTimeLength) return std::nullopt;
  if (text[2] != '/' || text[5] != '/' || text[8] != ',') return std::nullopt;
  return gsm::ParseTimeStamp(fmt::format("20{}-{}-{}T{}{}", text.substr(0, 2), text.substr(3, 2),
                                         text.substr(6, 2), text.substr(9, 8),
                                         has_zone ? IsoZone(text.substr(kTimeLength)) : ""));
}

void ModemClock::Set(const gsm::TimeStamp& time, const gsm::TimeStamp& network_time) {
  setting_ = {time, network_time};
}

gsm::TimeStamp ModemClock::Now(const gsm::TimeStamp& network_time) const {
  if (!setting_) return network_time;
  const auto passed = gsm::ToTime(network_time) - gsm::ToTime(setting_->network_time);
  return gsm::ToTimeStamp(gsm::ToTime(setting_->time) + passed, setting_->time.utc_offset_minutes);
}

}  // namespace modem_simulator
