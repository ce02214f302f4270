// SPDX-License-Identifier: MIT
// Base64 of any octets, compared with a codec that works bit by bit, and decoded again.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_fb_lib/base64.h"
#include "fuzz/require.h"

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using Bits = std::vector<bool>;  // the highest first

void Append(Bits& bits, unsigned value, int count) {
  while (count-- > 0) bits.push_back((value >> count & 1) != 0);
}

/// The numbers formed by each `count` bits; the last is padded with zeros.
std::vector<unsigned> Numbers(const Bits& bits, std::size_t count) {
  std::vector<unsigned> numbers((bits.size() + count - 1) / count);
  for (std::size_t i = 0; i < numbers.size() * count; ++i) {
    numbers[i / count] = 2 * numbers[i / count] + (i < bits.size() && bits[i] ? 1 : 0);
  }
  return numbers;
}

std::string Encoded(std::string_view bytes) {
  Bits bits;
  for (const char byte : bytes) Append(bits, static_cast<unsigned char>(byte), 8);
  std::string text;
  for (const unsigned digit : Numbers(bits, 6)) text += kAlphabet[digit];
  while (text.size() % 4 != 0) text += '=';
  return text;
}

std::string Decoded(std::string_view text) {
  Bits bits;
  for (const char character : text.substr(0, text.find_first_not_of(kAlphabet))) {
    Append(bits, static_cast<unsigned>(kAlphabet.find(character)), 6);
  }
  bits.resize(bits.size() / 8 * 8);
  std::string bytes;
  for (const unsigned byte : Numbers(bits, 8)) bytes += static_cast<char>(byte);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  const std::string text = base64_encode(data, static_cast<unsigned>(size));
  Require(text == Encoded(input));
  Require(base64_decode(text) == input);
  Require(base64_decode(input) == Decoded(input));

  // Separate memory of the exact size, so that access past the end is detected.
  std::vector<char> out(base64_length(size));
  Require(base64_write(out.data(), data, size) == out.data() + out.size());
  Require(std::equal(out.begin(), out.end(), text.begin(), text.end()));
  return 0;
}
