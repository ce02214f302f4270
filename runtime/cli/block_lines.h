// SPDX-License-Identifier: MIT
// Blocks and their variables as lines of a screen. Pure functions.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "runtime/cli/terminal_screen.h"
#include "runtime/corvane/block_observer.h"

namespace corvane::cli {

/// The blocks whose name or type contains `text` (ignoring the case of ASCII letters), and of the
/// other blocks, those variables whose name does. An empty text matches everything.
[[nodiscard]] std::vector<BlockState> Matching(const std::vector<BlockState>& blocks,
                                               std::string_view text);

/// A line with name and type, and below it the variables, side by side where `width` cells allow
/// it; a long value has its own line. A leading asterisk marks what has changed lately.
/// No line is wider than `width`.
[[nodiscard]] std::vector<ScreenLine> BlockLines(const std::vector<BlockState>& blocks,
                                                 std::size_t width);

}  // namespace corvane::cli
