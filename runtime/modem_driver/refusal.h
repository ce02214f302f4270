// SPDX-License-Identifier: MIT
// What a modem's refusals mean: +CMS ERROR (3GPP TS 27.005 clause 3.2.5) and +CME ERROR (3GPP TS
// 27.007 clause 9.2).
#pragma once

#include <string>
#include <string_view>

namespace corvane {

/// The refusal in an answer's text with its meaning, such as "+CMS ERROR: 331 (no network
/// service)"; without a meaning if the standards give none. Empty if the answer contains no
/// refusal.
[[nodiscard]] std::string DescribeRefusal(std::string_view answer);

}  // namespace corvane
