// SPDX-License-Identifier: MIT
#include "libs/gsm/seven_bit_text.h"

#include <array>

#include "libs/gsm/utf16.h"

namespace gsm {
namespace {

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

/// The septet of each character of the default alphabet, with kExtended if an escape comes before
/// it; kMissing for the others.
constexpr std::uint8_t kExtended = 0x80;
constexpr std::uint8_t kMissing = 0xFF;
constexpr char32_t kEuro = U'€';        // beyond the others
constexpr std::size_t kMapped = 0x400;  // characters below this

consteval std::array<std::uint8_t, kMapped> MakeSeptetMap() {
  std::array<std::uint8_t, kMapped> map{};
  map.fill(kMissing);
  for (std::size_t septet = 0; septet < kCharactersOfATable; ++septet) {
    const auto code = static_cast<std::uint8_t>(septet);
    const char32_t extended = kExtensionTable[septet];
    if (extended != U' ' && extended != kEuro) map[extended] = code | kExtended;
    if (septet != kEscape) map[kMainTable[septet]] = code;
  }
  return map;
}
constexpr auto kSeptetMap = MakeSeptetMap();
constexpr std::uint8_t kEuroSeptet = 0x65;
static_assert(kExtensionTable[kEuroSeptet] == kEuro);

std::u32string_view OrDefault(std::u32string_view table, std::u32string_view otherwise) {
  return table.empty() ? otherwise : table;
}

}  // namespace

std::string DecodeSeptets(OctetSpan septets, const Shifts& shifts) {
  const auto main = OrDefault(NationalLockingTable(shifts.locking), kMainTable);
  const auto extension = OrDefault(NationalSingleTable(shifts.single), kExtensionTable);
  Utf8Writer text(septets.size());
  for (std::size_t i = 0; i < septets.size(); ++i) {
    std::size_t septet = septets[i] & 0x7F;
    char32_t character = main[septet];
    if (septet == kEscape && i + 1 < septets.size()) {
      septet = septets[++i] & 0x7F;
      character = extension[septet] == U' ' ? main[septet] : extension[septet];
    }
    text.Append(character);
  }
  return std::move(text).Take();
}

bool AppendDefaultAlphabet(char32_t character, Octets& septets) {
  std::uint8_t code = character == kEuro ? kEuroSeptet | kExtended : kMissing;
  if (character < kMapped) code = kSeptetMap[character];
  if (code == kMissing) return false;
  if ((code & kExtended) != 0) septets.push_back(kEscape);
  septets.push_back(code & 0x7F);
  return true;
}

std::optional<Octets> EncodeDefaultAlphabet(char32_t character) {
  Octets septets;
  return AppendDefaultAlphabet(character, septets) ? std::optional(septets) : std::nullopt;
}

}  // namespace gsm
