// SPDX-License-Identifier: MIT
// Blocks and their variables as lines of a screen. Pure functions.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "runtime/cli/terminal_screen.h"
#include "runtime/corvane/block_observer.h"

namespace corvane::cli {

/// The blocks whose name or type contains `text` (in ASCII, capitals or not), and of the others the
/// variables whose name does. An empty text: all.
[[nodiscard]] std::vector<BlockState> Matching(const std::vector<BlockState>& blocks,
                                               std::string_view text);

/// A line with name and type, and below it the variables, beside each other as far as `width` cells
/// reach; a long value has a line of its own. An asterisk in front marks what has changed lately.
/// No line is wider than `width`.
[[nodiscard]] std::vector<ScreenLine> BlockLines(const std::vector<BlockState>& blocks,
                                                 std::size_t width);

}  // namespace corvane::cli
