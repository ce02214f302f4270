// SPDX-License-Identifier: MIT
#include "libs/gsm/default_alphabet.h"

#include <utf8.h>

#include <array>
#include <iterator>

namespace gsm {
namespace {

constexpr std::uint8_t kEscapeToExtension = 0x1B;

constexpr std::u32string_view kMainTable =
    U"@£$¥èéùìòÇ\nØø\rÅå"
    U"Δ_ΦΓΛΩΠΨΣΘΞ ÆæßÉ"  // 0x1B, the escape, counts as a space where it stands alone
    U" !\"#¤%&'()*+,-./"
    U"0123456789:;<=>?"
    U"¡ABCDEFGHIJKLMNO"
    U"PQRSTUVWXYZÄÖÑÜ§"
    U"¿abcdefghijklmno"
    U"pqrstuvwxyzäöñüà";
static_assert(kMainTable.size() == 128);

struct Extension {
  std::uint8_t septet;
  char32_t character;
};

constexpr std::array kExtensionTable{
    Extension{0x0A, U'\f'}, Extension{0x14, U'^'}, Extension{0x28, U'{'}, Extension{0x29, U'}'},
    Extension{0x2F, U'\\'}, Extension{0x3C, U'['}, Extension{0x3D, U'~'}, Extension{0x3E, U']'},
    Extension{0x40, U'|'},  Extension{0x65, U'€'}};

char32_t ExtendedCharacter(std::uint8_t septet) {
  for (const Extension& row : kExtensionTable) {
    if (row.septet == septet) return row.character;
  }
  return kMainTable[septet];
}

}  // namespace

std::string DecodeDefaultAlphabet(OctetSpan septets) {
  std::string text;
  for (std::size_t i = 0; i < septets.size(); ++i) {
    const std::uint8_t septet = septets[i] & 0x7F;
    char32_t character = kMainTable[septet];
    if (septet == kEscapeToExtension && i + 1 < septets.size()) {
      character = ExtendedCharacter(septets[++i] & 0x7F);
    }
    utf8::append(static_cast<std::uint32_t>(character), std::back_inserter(text));
  }
  return text;
}

std::optional<Octets> EncodeDefaultAlphabet(char32_t character) {
  for (const Extension& row : kExtensionTable) {
    if (row.character == character) return Octets{kEscapeToExtension, row.septet};
  }
  const std::size_t septet = kMainTable.find(character);
  if (septet == std::u32string_view::npos) return std::nullopt;
  if (septet == kEscapeToExtension) return Octets{0x20};
  return Octets{static_cast<std::uint8_t>(septet)};
}

}  // namespace gsm
