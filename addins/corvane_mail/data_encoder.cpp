// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/data_encoder.h"

#include <algorithm>
#include <cstddef>

namespace corvane_mail {

void DataEncoder::Encode(std::string_view octets, std::string& wire) {
  while (!octets.empty()) {
    if (after_cr_) {
      EndLine(wire);
      if (octets.front() == '\n') octets.remove_prefix(1);
      continue;
    }
    // Not find_first_of, which calls a function for each octet.
    const auto end = static_cast<std::size_t>(
        std::ranges::find_if(octets, [](char c) { return c == '\r' || c == '\n'; }) -
        octets.begin());
    const std::string_view text = octets.substr(0, end);
    if (!text.empty()) {
      if (at_line_begin_ && text.front() == '.') wire += '.';
      wire += text;
      at_line_begin_ = false;
    }
    if (end == octets.size()) return;
    if (octets[end] == '\r') {
      after_cr_ = true;
    } else {
      EndLine(wire);
    }
    octets.remove_prefix(end + 1);
  }
}

void DataEncoder::Finish(std::string& wire) {
  if (after_cr_ || !at_line_begin_) EndLine(wire);
  wire += ".\r\n";
}

void DataEncoder::EndLine(std::string& wire) {
  wire += "\r\n";
  after_cr_ = false;
  at_line_begin_ = true;
}

}  // namespace corvane_mail
