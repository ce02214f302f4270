// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/base64.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view base64_chars =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';
constexpr unsigned kSixBits = 0x3F;
constexpr std::uint8_t kNoDigit = 0xFF;

using Pairs = std::array<std::array<char, 2>, base64_chars.size() * base64_chars.size()>;
using Digits = std::array<std::uint8_t, 256>;

constexpr Pairs MakePairs() {
  Pairs pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    pairs[i] = {base64_chars[i >> 6], base64_chars[i & kSixBits]};
  }
  return pairs;
}

constexpr Digits MakeDigits() {
  Digits digits{};
  digits.fill(kNoDigit);
  for (std::size_t i = 0; i < base64_chars.size(); ++i) {
    digits[static_cast<unsigned char>(base64_chars[i])] = static_cast<std::uint8_t>(i);
  }
  return digits;
}

/// Two characters at a time: half as many look-ups as with the alphabet alone.
constexpr Pairs kPairs = MakePairs();
/// The value of each character, kNoDigit outside the alphabet.
constexpr Digits kDigits = MakeDigits();

/// Writes the two characters of the lowest twelve bits.
inline void EncodePair(char* to, std::uint64_t bits) {
  std::memcpy(to, kPairs[bits & 0xFFF].data(), 2);
}

/// Writes the four characters of three bytes.
inline void EncodeThree(char* to, unsigned first, unsigned second, unsigned third) {
  const unsigned bits = first << 16 | second << 8 | third;
  EncodePair(to, bits >> 12);
  EncodePair(to + 2, bits);
}

/// Writes the eight characters of the first six of eight bytes. Compilers turn this into one load.
inline void EncodeSix(char* to, const unsigned char* from) {
  std::uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = bits << 8 | from[i];
  EncodePair(to, bits >> 52);
  EncodePair(to + 2, bits >> 40);
  EncodePair(to + 4, bits >> 28);
  EncodePair(to + 6, bits >> 16);
}

}  // namespace

std::string base64_encode(const unsigned char* bytes, unsigned int len) {
  std::string text(base64_length(len), kPad);
  base64_write(text.data(), bytes, len);
  return text;
}

char* base64_write(char* out, const unsigned char* bytes, std::size_t length) {
  for (; length >= 8; length -= 6, bytes += 6, out += 8) EncodeSix(out, bytes);
  for (; length >= 3; length -= 3, bytes += 3, out += 4) {
    EncodeThree(out, bytes[0], bytes[1], bytes[2]);
  }
  if (length == 0) return out;
  EncodeThree(out, bytes[0], length == 2 ? bytes[1] : 0, 0);
  out[3] = kPad;
  if (length == 1) out[2] = kPad;
  return out + 4;
}

std::string base64_decode(const std::string& text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  unsigned bits = 0;
  int count = 0;  // bits that are not yet written
  for (const char c : text) {
    const std::uint8_t digit = kDigits[static_cast<unsigned char>(c)];
    if (digit == kNoDigit) break;
    bits = bits << 6 | digit;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return bytes;
}
