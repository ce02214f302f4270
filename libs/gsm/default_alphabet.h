// SPDX-License-Identifier: MIT
// The GSM 7-bit default alphabet with its extension table (3GPP TS 23.038 clauses 6.2.1, 6.2.1.1).
#pragma once

#include <optional>
#include <string>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// UTF-8 of seven-bit characters (0..127). An escape before a character that the extension table
/// lacks gives the character of the main table; an escape at the end or before another one, a
/// space.
[[nodiscard]] std::string DecodeDefaultAlphabet(OctetSpan septets);

/// The one or two (escape and character) septets of a character; nullopt when the alphabet lacks
/// it.
[[nodiscard]] std::optional<Octets> EncodeDefaultAlphabet(char32_t character);

}  // namespace gsm
