// SPDX-License-Identifier: MIT
// What follows the @ of a mail address: the name of a host or domain (RFC 5321 clause 4.1.2, RFC
// 5890), or an address of the Internet (RFC 5321 clause 4.1.3). Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace mail {

struct Domain {
  std::string ascii;    ///< as DNS and SMTP take it; letters of other scripts as xn--...
  std::string problem;  ///< what is wrong and what to do; empty: nothing
};

/// @param name valid UTF-8
[[nodiscard]] Domain ReadDomain(std::string_view name);

/// @param literal with its square brackets: [192.0.2.1] or [IPv6:2001:db8::1]
[[nodiscard]] Domain ReadAddressLiteral(std::string_view literal);

}  // namespace mail
