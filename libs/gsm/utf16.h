// SPDX-License-Identifier: MIT
// Text between UTF-8 and the UCS-2 of SMS (UTF-16, high octet first).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// The characters of UTF-8 text; nullopt when it is not valid.
[[nodiscard]] std::optional<std::u32string> CodePoints(std::string_view utf8);

/// Two octets, or four for a character above U+FFFF.
[[nodiscard]] Octets EncodeUtf16(char32_t character);

/// UTF-8 of UTF-16. A surrogate without its other half, or a last odd octet, becomes U+FFFD.
[[nodiscard]] std::string DecodeUtf16(OctetSpan octets);

}  // namespace gsm
