// SPDX-License-Identifier: MIT
// A mail's octets as they follow the command DATA (RFC 5321 clause 4.5.2): a dot at the beginning
// of a line is doubled. Every line end becomes CRLF, so that no server sees an end of the mail, or
// a command, where the client sees text.
#pragma once

#include <string>
#include <string_view>

namespace corvane_mail {

class DataEncoder {
 public:
  /// Appends the octets in their wire form to `wire`.
  void Encode(std::string_view octets, std::string& wire);
  /// Appends the end of the mail, a line with a single dot.
  void Finish(std::string& wire);

 private:
  void EndLine(std::string& wire);

  bool at_line_begin_ = true;
  bool after_cr_ = false;  // a CR has been held back: LF may follow
};

}  // namespace corvane_mail
