// SPDX-License-Identifier: MIT
// Messages of the command to its user.
#pragma once

#include <string>
#include <string_view>

namespace corvane::cli {

/// Makes a message that quotes user input printable. A long one is cut to its beginning and its
/// end, which says what to do.
[[nodiscard]] std::string PrintableMessage(std::string_view message);

/// Prints "corvane: " and the message on standard error, as one line.
void PrintError(std::string_view message);

}  // namespace corvane::cli
