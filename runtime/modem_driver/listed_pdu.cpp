// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/listed_pdu.h"

#include <algorithm>
#include <charconv>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/pdu.h"

namespace corvane {
namespace {

/// A line that begins with this many hexadecimal digits is a PDU, whatever noise it ends with.
constexpr std::size_t kCertainlyHex = 8;

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

std::string_view DigitsOf(std::string_view line) {
  const auto end = std::find_if_not(line.begin(), line.end(), IsHexDigit);
  return line.substr(0, static_cast<std::size_t>(end - line.begin()));
}

bool IsFilling(std::string_view rest) {
  return std::all_of(rest.begin(), rest.end(),
                     [](char c) { return c == 'F' || c == 'f' || !IsHexDigit(c); });
}

/// The two lengths of a PDU, in characters with the service-centre address; 0: unknown.
struct Ends {
  std::size_t announced = 0;
  std::size_t own = 0;
};

Ends EndsOf(std::string_view header, std::string_view line) {
  const std::string_view digits = DigitsOf(line);
  const auto octets = gsm::FromHexadecimal(digits.substr(0, digits.size() / 2 * 2));
  if (!octets || octets->empty()) return {};
  Ends ends;
  ends.own = 2 * gsm::DeliverSize(*octets);
  const std::size_t address = header.starts_with("+CBM") ? 0 : 1 + octets->front();
  // A length beyond that of any PDU is not a length, and would overflow.
  constexpr std::size_t kMost = 10'000;
  const auto announced = AnnouncedOctets(header);
  if (announced && *announced < kMost) ends.announced = 2 * (address + *announced);
  return ends;
}

}  // namespace

std::optional<std::size_t> AnnouncedOctets(std::string_view header) {
  const std::string_view number = header.substr(header.find_last_of(",: ") + 1);
  std::size_t length = 0;
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, length);
  if (error != std::errc() || rest != end) return std::nullopt;
  return length;
}

bool LooksLikePdu(std::string_view line) {
  const std::size_t digits = DigitsOf(line).size();
  return digits >= kCertainlyHex || (digits >= 2 && digits == line.size());
}

std::size_t AnnouncedSize(std::string_view header, std::string_view line) {
  return EndsOf(header, line).announced;
}

std::size_t PduEnd(std::string_view header, std::string_view line) {
  const auto [announced, own] = EndsOf(header, line);
  if (announced == line.size()) return line.size();
  if (own != 0 && own <= line.size() && (own == announced || IsFilling(line.substr(own)))) {
    return own;
  }
  // Its own end is not known, or noise follows it.
  if (announced != 0 && announced < line.size() && own < announced &&
      IsFilling(line.substr(announced))) {
    return announced;
  }
  return line.size();
}

bool IsWholePdu(std::string_view header, std::string_view line, bool sure) {
  const auto [announced, own] = EndsOf(header, line);
  if (sure) return std::max(announced, own) != 0 && line.size() >= std::max(announced, own);
  const std::size_t end = own != 0 ? own : announced;
  return end != 0 && line.size() >= end;
}

}  // namespace corvane
