// SPDX-License-Identifier: MIT
#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

/// 0..15, or -1 for a character that is not a digit.
int ValueOf(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

}  // namespace

std::string ToHexadecimal(OctetSpan octets) {
  std::string digits;
  digits.reserve(2 * octets.size());
  for (const std::uint8_t octet : octets) {
    digits += kDigits[octet >> 4];
    digits += kDigits[octet & 0x0F];
  }
  return digits;
}

std::optional<Octets> FromHexadecimal(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  Octets octets;
  octets.reserve(digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = ValueOf(digits[i]);
    const int low = ValueOf(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    octets.push_back(static_cast<std::uint8_t>(16 * high + low));
  }
  return octets;
}

}  // namespace gsm
