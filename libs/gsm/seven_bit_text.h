// SPDX-License-Identifier: MIT
// Text of seven-bit characters: the GSM 7-bit default alphabet with its extension table, and the
// national language tables that may take their place (3GPP TS 23.038 clause 6.2.1).
#pragma once

#include <optional>
#include <string>

#include "libs/gsm/national_tables.h"
#include "libs/gsm/octet_reader.h"

namespace gsm {

/// The languages whose tables a text is read with. One that lacks the table has the default one.
struct Shifts {
  Language locking = Language::kDefault;  ///< in place of the default alphabet
  Language single = Language::kDefault;   ///< in place of the extension table, behind an escape

  bool operator==(const Shifts&) const = default;
};

/// UTF-8 of seven-bit characters (0..127). An escape before a character that the table behind it
/// lacks gives the character of the main table; an escape at the end or before another one, a
/// space.
[[nodiscard]] std::string DecodeSeptets(OctetSpan septets, const Shifts& shifts = {});

/// The one or two (escape and character) septets of a character in the default alphabet; nullopt
/// when it lacks it.
[[nodiscard]] std::optional<Octets> EncodeDefaultAlphabet(char32_t character);

}  // namespace gsm
