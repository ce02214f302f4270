// SPDX-License-Identifier: MIT
// What a subject and a text may consist of. Pure functions; each returns a sentence that says what
// is wrong and what to do, or an empty one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mail {

/// Servers cut or refuse header fields that are much longer (postfix: 100 kB when encoded).
inline constexpr std::size_t kMaxSubject = 10'000;
/// More belongs into an attachment.
inline constexpr std::size_t kMaxText = 10'000'000;

/// UTF-8 without NUL, at most kMaxSubject octets.
[[nodiscard]] std::string CheckSubject(std::string_view subject);
/// UTF-8 without NUL, at most kMaxText octets. @param variable what the sentence calls it, such as
/// "Html"
[[nodiscard]] std::string CheckText(std::string_view text, std::string_view variable = "Text");

}  // namespace mail
