// SPDX-License-Identifier: MIT
// Foreign text in the messages and the output of the command.
#pragma once

#include <string>
#include <string_view>

namespace corvane::cli {

/// As valid UTF-8 in one line that no terminal takes for a command: control characters and foreign
/// octets are written as \n or \xNN. Control characters in `kept` stay as they are.
[[nodiscard]] std::string Printable(std::string_view text, std::string_view kept = {});

/// A message that quotes what a user gave, however long that is: its beginning and its end, which
/// says what to do, both printable.
[[nodiscard]] std::string PrintableMessage(std::string_view message);

/// Prints "corvane: " and the message on standard error, as one line.
void PrintError(std::string_view message);

}  // namespace corvane::cli
