// SPDX-License-Identifier: MIT
// What others have sent, as a log may show it. Pure functions, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The first `limit` octets, or up to three fewer, so that no character is cut, and "..." where
/// there are more; made printable as libs/base/printable.h does.
[[nodiscard]] std::string ShownText(std::string_view text, std::size_t limit = 200);

/// A mail server's reply line without its line end, as above. Servers quote what they do not
/// understand, so "***" replaces the login and each piece of four or more characters that the line
/// has in common with the password, or with either of them as Base64, in upper or lower case.
[[nodiscard]] std::string ShownReply(std::string_view line, const std::string& login,
                                     const std::string& password);
