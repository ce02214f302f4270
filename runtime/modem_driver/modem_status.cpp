// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_status.h"

#include <fmt/format.h>

#include <algorithm>

namespace corvane {
namespace {

/// No answer has so many hexadecimal digits and nothing else, but a PDU (3GPP TS 23.040).
constexpr std::size_t kShortestPdu = 16;

bool IsPdu(std::string_view line) {
  return line.size() >= kShortestPdu &&
         line.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

}  // namespace

void ModemStatus::NoteLine(bool sent, std::string_view text) {
  if (text.empty()) return;
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  std::string shown = IsPdu(text) ? fmt::format("(PDU of {} octets)", text.size() / 2)
                                  : std::string(text.substr(0, kLongestLine));
  const std::lock_guard guard(mutex_);
  lines_.push_back({now.count(), sent, std::move(shown)});
  if (lines_.size() <= kLines) return;
  lines_.pop_front();
  ++first_;
}

void ModemStatus::NoteAnswer(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    NoteLine(false, text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

ModemStatus::Part ModemStatus::From(std::uint64_t from) const {
  const std::lock_guard guard(mutex_);
  Part part;
  part.next = first_ + lines_.size();
  const std::uint64_t begin = std::clamp(from, first_, part.next) - first_;
  part.lines.assign(lines_.begin() + static_cast<std::ptrdiff_t>(begin), lines_.end());
  return part;
}

}  // namespace corvane
