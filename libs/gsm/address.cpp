// SPDX-License-Identifier: MIT
#include "libs/gsm/address.h"

#include "libs/gsm/septets.h"
#include "libs/gsm/seven_bit_text.h"
#include "libs/gsm/utf16.h"

namespace gsm {
namespace {

constexpr std::string_view kSemiOctets = "0123456789*#abc";
constexpr std::uint8_t kFiller = 0x0F;
constexpr std::size_t kMostDigits = 20;
constexpr std::size_t kMostLetters = 11;

constexpr std::uint8_t kInternational = 0x91;
constexpr std::uint8_t kOtherNumber = 0x81;
constexpr std::uint8_t kAlphanumeric = 0xD0;

/// Whether both types of address have the same type of number, in bits 6 to 4.
bool SameTypeOfNumber(std::uint8_t one, std::uint8_t other) {
  return ((one ^ other) & 0x70) == 0;
}

std::string_view DigitsOf(std::string_view number) {
  if (number.starts_with('+')) number.remove_prefix(1);
  return number;
}

/// The septets of an alphanumeric address; empty when `text` cannot be one.
Octets Letters(std::string_view text) {
  Octets septets;
  for (const char32_t character : CodePoints(text).value_or(std::u32string())) {
    if (!AppendDefaultAlphabet(character, septets)) return {};
  }
  return septets.size() <= kMostLetters ? septets : Octets{};
}

std::string ReadDigits(OctetSpan octets, std::size_t count, OctetReader& in) {
  std::string digits;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t octet = octets[i / 2];
    const std::uint8_t half = i % 2 == 0 ? octet & 0x0F : octet >> 4;
    if (half == kFiller) {
      // After an odd number of digits the last half is the filler; anywhere else it is not a digit.
      if (i + 1 != count) in.Refuse(PduError::kBadDigit);
      break;
    }
    digits += kSemiOctets[half];
  }
  return digits;
}

void WriteDigits(std::string_view digits, Octets& out) {
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const std::size_t low = kSemiOctets.find(digits[i]);
    const std::size_t high = i + 1 < digits.size() ? kSemiOctets.find(digits[i + 1]) : kFiller;
    out.push_back(static_cast<std::uint8_t>((high << 4 | low) & 0xFF));
  }
}

/// The type and the value of `semi_octets` halves that follow.
Address ReadTypeAndValue(OctetReader& in, std::size_t semi_octets) {
  const std::uint8_t type = in.Next();
  const OctetSpan octets = in.Take((semi_octets + 1) / 2);
  if (in.error() != PduError::kNone) return {};
  if (SameTypeOfNumber(type, kAlphanumeric)) {
    return DecodeSeptets(UnpackSeptets(octets, semi_octets * 4 / 7));
  }
  const std::string digits = ReadDigits(octets, semi_octets, in);
  return SameTypeOfNumber(type, kInternational) ? "+" + digits : digits;
}

}  // namespace

bool IsNumber(std::string_view text) {
  const std::string_view digits = DigitsOf(text);
  return !digits.empty() && digits.size() <= kMostDigits &&
         digits.find_first_not_of(kSemiOctets) == std::string_view::npos;
}

bool IsAddress(std::string_view text) {
  return IsNumber(text) || (!text.starts_with('+') && !Letters(text).empty());
}

std::uint8_t TypeOfAddress(const Address& address) {
  if (!address.empty() && !IsNumber(address)) return kAlphanumeric;
  return address.starts_with('+') ? kInternational : kOtherNumber;
}

Address ReadAddress(OctetReader& in) {
  const std::uint8_t semi_octets = in.Next();
  if (semi_octets > kMostDigits) in.Refuse(PduError::kBadLength);
  return ReadTypeAndValue(in, semi_octets);
}

void WriteAddress(const Address& address, Octets& out) {
  if (!address.empty() && !IsNumber(address)) {
    const Octets letters = Letters(address);
    const Octets packed = PackSeptets(letters);
    out.push_back(static_cast<std::uint8_t>((letters.size() * 7 + 3) / 4));
    out.push_back(kAlphanumeric);
    out.insert(out.end(), packed.begin(), packed.end());
    return;
  }
  const std::string_view digits = DigitsOf(address);
  out.push_back(static_cast<std::uint8_t>(digits.size()));
  out.push_back(TypeOfAddress(address));
  WriteDigits(digits, out);
}

Address ReadServiceCentre(OctetReader& in) {
  const std::uint8_t octets = in.Next();
  if (octets == 0) return {};
  if (octets > 1 + kMostDigits / 2) in.Refuse(PduError::kBadLength);
  return ReadTypeAndValue(in, 2 * (octets - std::size_t{1}));
}

void WriteServiceCentre(const Address& address, Octets& out) {
  if (address.empty()) {
    out.push_back(0);
    return;
  }
  const std::string_view digits = DigitsOf(address);
  out.push_back(static_cast<std::uint8_t>(1 + (digits.size() + 1) / 2));
  out.push_back(TypeOfAddress(address));
  WriteDigits(digits, out);
}

}  // namespace gsm
