// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/character_set.h"

#include <algorithm>
#include <array>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/seven_bit_text.h"
#include "libs/gsm/utf16.h"

namespace modem_simulator {
namespace {

constexpr std::array<std::string_view, 3> kNames{"GSM", "IRA", "UCS2"};

gsm::Octets Encode(char32_t character, CharacterSet set) {
  switch (set) {
    case CharacterSet::kGsm:
      return gsm::EncodeDefaultAlphabet(character).value_or(gsm::Octets{'?'});
    case CharacterSet::kIra: return {static_cast<std::uint8_t>(character < 0x80 ? character : '?')};
    case CharacterSet::kUcs2: return gsm::EncodeUtf16(character);
  }
  return {};
}

bool IsSevenBit(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return (static_cast<unsigned char>(c) & 0x80) == 0; });
}

}  // namespace

std::string_view NameOf(CharacterSet set) {
  return kNames[static_cast<std::size_t>(set)];
}

std::optional<CharacterSet> CharacterSetNamed(std::string_view name) {
  const auto found = std::find(kNames.begin(), kNames.end(), name);
  if (found == kNames.end()) return std::nullopt;
  return static_cast<CharacterSet>(found - kNames.begin());
}

std::string ToLine(std::string_view utf8, CharacterSet set) {
  gsm::Octets octets;
  for (const char32_t character : gsm::CodePoints(utf8).value_or(U"")) {
    const gsm::Octets encoded = Encode(character, set);
    octets.insert(octets.end(), encoded.begin(), encoded.end());
  }
  if (set == CharacterSet::kUcs2) return gsm::ToHexadecimal(octets);
  return {octets.begin(), octets.end()};
}

std::optional<std::string> FromLine(std::string_view text, CharacterSet set) {
  if (set == CharacterSet::kUcs2) {
    const auto octets = gsm::FromHexadecimal(text);
    if (!octets || octets->size() % 2 != 0) return std::nullopt;
    return gsm::DecodeUtf16(*octets);
  }
  if (!IsSevenBit(text)) return std::nullopt;
  if (set == CharacterSet::kIra) return std::string(text);
  return gsm::DecodeSeptets(gsm::Octets(text.begin(), text.end()));
}

}  // namespace modem_simulator
