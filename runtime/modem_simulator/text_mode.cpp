// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/text_mode.h"

#include <fmt/format.h>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/pdu.h"
#include "libs/gsm/utf16.h"

namespace modem_simulator {
namespace {

constexpr std::string_view kUcs2 = "UCS2";

/// The text in UCS-2 digits, whatever alphabet it came in.
std::string Ucs2Digits(std::string_view utf8) {
  gsm::Octets units;
  for (const char32_t character : gsm::CodePoints(utf8).value_or(U"")) {
    const gsm::Octets unit = gsm::EncodeUtf16(character);
    units.insert(units.end(), unit.begin(), unit.end());
  }
  return gsm::ToHexadecimal(units);
}

std::string Text(const gsm::UserData& data, std::string_view character_set) {
  if (data.alphabet != gsm::Alphabet::kDefault) return gsm::ToHexadecimal(data.payload);
  if (character_set == kUcs2) return Ucs2Digits(gsm::TextOf(data));
  return {data.payload.begin(), data.payload.end()};
}

std::string Time(const gsm::TimeStamp& time) {
  return fmt::format("{:02}/{:02}/{:02},{:02}:{:02}:{:02}{:+03}", time.year % 100, time.month,
                     time.day, time.hour, time.minute, time.second, time.utc_offset_minutes / 15);
}

}  // namespace

std::string TextEntry(const StoredMessage& message, std::string_view character_set) {
  gsm::DeliverPdu pdu;
  if (!gsm::DecodeDeliver(message.pdu, pdu)) {
    return fmt::format("\"{}\",\"\",,\r\n{}", TextOf(message.status),
                       gsm::ToHexadecimal(message.pdu));
  }
  const gsm::Address originator =
      character_set == kUcs2 ? Ucs2Digits(pdu.originator) : pdu.originator;
  return fmt::format("\"{}\",\"{}\",,\"{}\"\r\n{}", TextOf(message.status), originator,
                     Time(pdu.time), Text(pdu.data, character_set));
}

std::optional<gsm::UserData> TextBody(std::string_view body, std::string_view character_set) {
  gsm::UserData data;
  std::size_t most = 160;
  if (character_set == kUcs2) {
    auto octets = gsm::FromHexadecimal(body);
    if (!octets || octets->size() % 2 != 0) return std::nullopt;
    data = {gsm::Alphabet::kUcs2, {}, std::move(*octets)};
    most = 140;
  } else {
    for (const char septet : body) {
      if ((static_cast<unsigned char>(septet) & 0x80) != 0) return std::nullopt;
      data.payload.push_back(static_cast<std::uint8_t>(septet));
    }
  }
  return data.payload.size() <= most ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace modem_simulator
