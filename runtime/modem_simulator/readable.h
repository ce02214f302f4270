// SPDX-License-Identifier: MIT
// Converts text with control characters to one line for a terminal, and back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace modem_simulator {

/// Like corvane::Printable, but also doubles backslashes, so that Unescape returns `text` again.
[[nodiscard]] std::string Escape(std::string_view text);

/// The reverse of Escape; nullopt if a backslash does not begin one of its escapes.
[[nodiscard]] std::optional<std::string> Unescape(std::string_view text);

}  // namespace modem_simulator
