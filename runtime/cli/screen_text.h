// SPDX-License-Identifier: MIT
// Text for the cells of a terminal, whatever octets it came from.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/corvane/block_observer.h"

namespace corvane::cli {

/// As valid UTF-8 without anything that a terminal would obey: escape sequences are left out, a tab
/// becomes a blank, another control character or a foreign octet a question mark.
[[nodiscard]] std::string ScreenText(std::string_view text);

/// The text of exactly `columns` cells: filled up with blanks, or cut, which "..." at its end
/// shows. A character counts as one cell.
[[nodiscard]] std::string Fit(const std::string& text, std::size_t columns);

/// The blocks as lines of at most `width` cells: a line with name and type, below it the variables,
/// two beside each other, a long value in a line of its own.
[[nodiscard]] std::vector<std::string> BlockLines(const std::vector<BlockState>& blocks,
                                                  std::size_t width);

}  // namespace corvane::cli
