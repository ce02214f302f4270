// SPDX-License-Identifier: MIT
// Octets as the hexadecimal digits that a modem in PDU mode uses (3GPP TS 27.005 clause 3.1).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// Two upper-case digits for each octet.
[[nodiscard]] std::string ToHexadecimal(OctetSpan octets);

/// Digits of either case; nullopt for an odd number of digits and for other characters.
[[nodiscard]] std::optional<Octets> FromHexadecimal(std::string_view digits);

}  // namespace gsm
