// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/data_encoder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace corvane_mail {
namespace {

/// The index of the first CR or LF from `at` on, or the size. Eight octets are looked at in one go,
/// since this is what most of the time for a large attachment would go to.
std::size_t LineEnd(std::string_view octets, std::size_t at) {
  constexpr std::uint64_t kEach = 0x0101010101010101;
  for (std::uint64_t eight = 0; at + sizeof eight <= octets.size(); at += sizeof eight) {
    std::memcpy(&eight, octets.data() + at, sizeof eight);
    const bool has_control = ((eight - ('\r' + 1) * kEach) & ~eight & (0x80 * kEach)) != 0;
    if (has_control) break;  // CR, LF, or another octet below them
  }
  const auto is_end = [](char c) { return c == '\r' || c == '\n'; };
  return static_cast<std::size_t>(std::find_if(octets.begin() + at, octets.end(), is_end) -
                                  octets.begin());
}

/// How many octets are the same in their wire form: the beginning of a line, and the lines after it
/// that end with CRLF and have no dot in front.
std::size_t RegularPart(std::string_view octets) {
  std::size_t end = LineEnd(octets, 0);
  while (end + 2 < octets.size() && octets.substr(end, 2) == "\r\n" && octets[end + 2] != '.') {
    end = LineEnd(octets, end + 2);
  }
  return end;
}

}  // namespace

void DataEncoder::Encode(std::string_view octets, std::string& wire) {
  while (!octets.empty()) {
    if (after_cr_) {
      EndLine(wire);
      if (octets.front() == '\n') octets.remove_prefix(1);
      continue;
    }
    const std::size_t end = RegularPart(octets);
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
