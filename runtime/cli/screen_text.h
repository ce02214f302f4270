// SPDX-License-Identifier: MIT
// Text for the cells of a terminal, whatever octets it was made from.
// A character has as many cells as wcwidth says for C.UTF-8, whatever the locale of the process.
// Threads: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane::cli {

/// The text as valid UTF-8 without anything that a terminal would obey: escape sequences are left
/// out, and a tab becomes a space. A question mark replaces any other control character, an octet
/// that is not UTF-8, a character that the system does not know or that changes the direction of
/// writing, and the excess if a character has too many combining ones.
[[nodiscard]] std::string ScreenText(std::string_view text);

/// How many cells the ScreenText takes. An emoji that a terminal may combine from several
/// characters (with U+200D or U+FE0F) counts with the cells of all of them: never too few.
[[nodiscard]] std::size_t Cells(std::string_view text);

/// The ScreenText in exactly `columns` cells: padded with spaces, or cut, with "..." at its end. A
/// cut never separates a character from the combining ones that follow it, nor the characters of
/// one emoji.
[[nodiscard]] std::string Fit(std::string_view text, std::size_t columns);

}  // namespace corvane::cli
