// SPDX-License-Identifier: MIT
#include "libs/gsm/seven_bit_text.h"

#include <utf8.h>

#include <iterator>

namespace gsm {
namespace {

constexpr std::uint8_t kEscape = 0x1B;

constexpr std::u32string_view kMainTable =
    U"@£$¥èéùìòÇ\nØø\rÅå"
    U"Δ_ΦΓΛΩΠΨΣΘΞ ÆæßÉ"  // the escape counts as a space where it is alone
    U" !\"#¤%&'()*+,-./"
    U"0123456789:;<=>?"
    U"¡ABCDEFGHIJKLMNO"
    U"PQRSTUVWXYZÄÖÑÜ§"
    U"¿abcdefghijklmno"
    U"pqrstuvwxyzäöñüà";
static_assert(kMainTable.size() == kCharactersOfATable);

/// A space for each character that it does not define.
constexpr std::u32string_view kExtensionTable =
    U"          \f     "
    U"    ^           "
    U"        {}     \\"
    U"            [~] "
    U"|               "
    U"                "
    U"     €          "
    U"                ";
static_assert(kExtensionTable.size() == kCharactersOfATable);

std::u32string_view OrDefault(std::u32string_view table, std::u32string_view otherwise) {
  return table.empty() ? otherwise : table;
}

}  // namespace

std::string DecodeSeptets(OctetSpan septets, const Shifts& shifts) {
  const auto main = OrDefault(NationalLockingTable(shifts.locking), kMainTable);
  const auto extension = OrDefault(NationalSingleTable(shifts.single), kExtensionTable);
  std::string text;
  for (std::size_t i = 0; i < septets.size(); ++i) {
    std::size_t septet = septets[i] & 0x7F;
    char32_t character = main[septet];
    if (septet == kEscape && i + 1 < septets.size()) {
      septet = septets[++i] & 0x7F;
      character = extension[septet] == U' ' ? main[septet] : extension[septet];
    }
    utf8::append(static_cast<std::uint32_t>(character), std::back_inserter(text));
  }
  return text;
}

std::optional<Octets> EncodeDefaultAlphabet(char32_t character) {
  if (character == U' ') return Octets{0x20};
  if (const auto septet = kMainTable.find(character); septet != std::u32string_view::npos) {
    return Octets{static_cast<std::uint8_t>(septet)};
  }
  const auto septet = kExtensionTable.find(character);
  if (septet == std::u32string_view::npos) return std::nullopt;
  return Octets{kEscape, static_cast<std::uint8_t>(septet)};
}

}  // namespace gsm
