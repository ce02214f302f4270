// SPDX-License-Identifier: MIT
#include "runtime/cli/pdu_input.h"

#include <sstream>
#include <utility>

#include "runtime/modem_driver/listed_pdu.h"

namespace corvane::cli {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kShortestPdu = 16;  // digits; a shorter word may be the header's length

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool IsHeader(std::string_view line) {
  return line.starts_with('+') && line.find(':') != line.npos;
}

}  // namespace

void PduInput::Add(std::string_view line) {
  line = Trimmed(line);
  if (line.empty() || line == "OK" || line.starts_with("AT")) return;
  if (!IsHeader(line)) return AddPdu(line);
  if (!header_.empty()) AddPdu({});
  const std::size_t blank = line.find_last_of(kBlanks);
  const std::string_view last = line.substr(blank + 1);
  const bool has_pdu = blank != line.npos && last.size() >= kShortestPdu &&
                       last.find_first_not_of(kHexDigits) == last.npos;
  header_ = Trimmed(has_pdu ? line.substr(0, blank) : line);
  if (has_pdu) AddPdu(last);
}

void PduInput::AddPdu(std::string_view hex) {
  const auto announced = header_.empty() ? std::nullopt : AnnouncedOctets(header_);
  pdus_.push_back({std::string(hex), std::exchange(header_, {}), announced});
}

std::vector<GivenPdu> PduInput::Take() {
  return std::exchange(pdus_, {});
}

std::vector<std::string> LinesOf(const std::vector<std::string>& words) {
  std::vector<std::string> lines;
  std::string begun;
  for (const std::string& word : words) {
    begun += word;
    if (word.starts_with('+') && word.ends_with(':')) {
      begun += ' ';
      continue;
    }
    if (begun.empty()) lines.emplace_back();
    std::istringstream text(std::exchange(begun, {}));
    for (std::string line; std::getline(text, line);) {
      if (!line.empty()) lines.push_back(line);
    }
  }
  if (!begun.empty()) lines.push_back(begun);
  return lines;
}

}  // namespace corvane::cli
