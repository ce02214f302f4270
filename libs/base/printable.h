// SPDX-License-Identifier: MIT
// Text from outside, made safe for a terminal and a log.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

/// `text` as valid UTF-8 on one line that no terminal takes for a command. Control characters,
/// U+0080 to U+009F included, and octets that are not UTF-8 are written as \n, \r, \t or \xNN.
/// Control characters in `kept` stay as they are.
[[nodiscard]] std::string Printable(std::string_view text, std::string_view kept = {});

/// The first `limit` octets of `text`, or up to three fewer, so that no character is cut.
[[nodiscard]] std::string_view WholeCharacters(std::string_view text, std::size_t limit);

/// The first `limit` octets of `text` made printable, or up to three fewer, so that no character is
/// cut; "..." follows if there are more. Control characters in `kept` stay as they are.
[[nodiscard]] std::string PrintableBeginning(std::string_view text, std::size_t limit,
                                             std::string_view kept = {});

}  // namespace corvane
