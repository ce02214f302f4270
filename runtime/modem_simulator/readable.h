// SPDX-License-Identifier: MIT
// Text with control characters on one line of a terminal, and back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace modem_simulator {

/// As corvane::Printable, and the backslash doubled, so that Unescape gives `text` again.
[[nodiscard]] std::string Escape(std::string_view text);

/// The reverse; nullopt where a backslash begins none of these.
[[nodiscard]] std::optional<std::string> Unescape(std::string_view text);

}  // namespace modem_simulator
