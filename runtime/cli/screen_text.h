// SPDX-License-Identifier: MIT
// Text for the cells of a terminal, whatever octets it came from.
// A character has as many cells as wcwidth says for C.UTF-8, whatever locale the process has.
// Threads: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane::cli {

/// As valid UTF-8 without anything that a terminal would obey: escape sequences are left out, and a
/// tab becomes a blank. A question mark stands for another control character, for an octet that is
/// not UTF-8, for a character that the system does not know or that changes the direction of
/// writing, and for what follows a character with too many combining ones.
[[nodiscard]] std::string ScreenText(std::string_view text);

/// How many cells the ScreenText takes. An emoji that a terminal may put together from several
/// (with U+200D, or by U+FE0F) counts with the cells of all of them: never too few.
[[nodiscard]] std::size_t Cells(std::string_view text);

/// The ScreenText in exactly `columns` cells: filled up with blanks, or cut, which "..." at its end
/// shows. A cut never parts a character from the combining ones that follow it, nor an emoji that
/// is made of several.
[[nodiscard]] std::string Fit(std::string_view text, std::size_t columns);

}  // namespace corvane::cli
