// SPDX-License-Identifier: MIT
// The parameters of a line that answers an AT command (3GPP TS 27.007 clause 4). Pure functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::modem_check {

/// The fields of `0,1,"Some, network",7`, without their quotes. A comma in quotes or in parentheses
/// separates nothing.
[[nodiscard]] std::vector<std::string> SplitFields(std::string_view parameters);

/// The field as a number; nullopt: there is no such field, or it is something else.
[[nodiscard]] std::optional<int> NumberAt(const std::vector<std::string>& fields,
                                          std::size_t index);

/// A text that a modem shows in the alphabet UCS2, as four hexadecimal digits for each UTF-16 code
/// unit; any other text is returned as it is.
[[nodiscard]] std::string FromUcs2Digits(std::string_view text);

}  // namespace corvane::modem_check
