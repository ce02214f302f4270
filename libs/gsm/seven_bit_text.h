// SPDX-License-Identifier: MIT
// Text of seven-bit characters: the GSM 7-bit default alphabet with its extension table, and the
// national language tables that may replace them (3GPP TS 23.038 clause 6.2.1).
#pragma once

#include <optional>
#include <string>

#include "libs/gsm/national_tables.h"
#include "libs/gsm/octet_reader.h"

namespace gsm {

/// The languages whose tables a text is read with. The default table serves a language without one.
struct Shifts {
  Language locking = Language::kDefault;  ///< instead of the default alphabet
  Language single = Language::kDefault;   ///< instead of the extension table, after an escape

  bool operator==(const Shifts&) const = default;
};

/// UTF-8 of seven-bit characters (0..127). An escape before a character that the table for it lacks
/// yields the character of the main table; an escape at the end or before another one yields a
/// space.
[[nodiscard]] std::string DecodeSeptets(OctetSpan septets, const Shifts& shifts = {});

/// The septet before a character of the extension table.
inline constexpr std::uint8_t kEscape = 0x1B;

/// Appends the one or two (escape and character) septets of a character in the default alphabet.
/// @return false if the alphabet lacks it
[[nodiscard]] bool AppendDefaultAlphabet(char32_t character, Octets& septets);

/// The septets of a character in the default alphabet; nullopt if the alphabet lacks it.
[[nodiscard]] std::optional<Octets> EncodeDefaultAlphabet(char32_t character);

}  // namespace gsm
