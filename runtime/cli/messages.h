// SPDX-License-Identifier: MIT
// Messages of the command to its user.
#pragma once

#include <string>
#include <string_view>

namespace corvane::cli {

/// A message that quotes what a user gave. One that is too long is cut to its beginning and its
/// end, which says what to do. Printable.
[[nodiscard]] std::string PrintableMessage(std::string_view message);

/// Prints "corvane: " and the message on standard error, as one line.
void PrintError(std::string_view message);

}  // namespace corvane::cli
