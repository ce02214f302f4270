// SPDX-License-Identifier: MIT
// A text as the body of a MIME part (RFC 2045 clause 6, RFC 2046 clause 4.1). Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace mail {

/// A text as it travels: unchanged where every server and reader leaves that alone, else in the
/// encoding that needs fewer octets.
struct TextPart {
  std::string charset;   ///< "us-ascii" or "utf-8"
  std::string encoding;  ///< value of Content-Transfer-Encoding
  std::string body;      ///< lines that end with CRLF, the last one perhaps without it
};

/// LF and CRLF end a line; a CR by itself is a character and survives as such. No line of the body
/// has more than 78 octets, begins with a dot, "From " or the begin of a boundary ("--=_"), or ends
/// with a blank. @param text octets that are not UTF-8 become U+FFFD
[[nodiscard]] TextPart EncodeText(std::string_view text);

}  // namespace mail
