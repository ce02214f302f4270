// SPDX-License-Identifier: MIT
// A mail server's reply as a log may show it. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

/// The first 200 octets of a reply line, without its line end, made printable. Servers quote what
/// they do not understand, so "***" replaces the login and each piece of four or more characters
/// that the line has in common with the password, or with either of them as Base64, in upper or
/// lower case.
[[nodiscard]] std::string ShownReply(std::string_view line, const std::string& login,
                                     const std::string& password);
