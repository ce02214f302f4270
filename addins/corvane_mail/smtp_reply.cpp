// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_reply.h"

#include <algorithm>
#include <utility>

#include "addins/corvane_mail/secret.h"
#include "libs/base/printable.h"

namespace corvane_mail {
namespace {

constexpr std::size_t kMaxShown = 500;

/// The code that a line begins with; 0 if it does not.
int CodeOf(std::string_view line) {
  const auto digit = [line](std::size_t i) { return line[i] >= '0' && line[i] <= '9'; };
  if (line.size() < 3 || !digit(0) || !digit(1) || !digit(2)) return 0;
  if (line.size() > 3 && line[3] != ' ' && line[3] != '-') return 0;
  const int code = (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
  return code >= 200 && code <= 599 ? code : 0;
}

}  // namespace

std::string WordsOf(const Reply& reply) {
  if (reply.code == 0) return {};
  return std::to_string(reply.code) + (reply.text.empty() ? "" : " ") + reply.text;
}

std::size_t ReplyReader::Feed(std::string_view octets) {
  std::size_t used = 0;
  while (state_ == State::kMore && used < octets.size()) {
    const std::string_view rest = octets.substr(used);
    const std::size_t length = std::min(rest.find('\n'), rest.size());
    const bool ends = length < rest.size();
    line_ += rest.substr(0, std::min(length, kMaxLine - line_.size()));
    used += length + (ends ? 1 : 0);
    octets_ += length + (ends ? 1 : 0);
    if (ends) EndLine();
    if (state_ == State::kMore && octets_ > kMaxOctets) state_ = State::kTooLong;
  }
  return used;
}

void ReplyReader::EndLine() {
  if (line_.ends_with('\r')) line_.pop_back();
  code_ = CodeOf(line_);
  const bool goes_on = line_.size() > 3 && line_[3] == '-';
  if (code_ == 0) {
    state_ = State::kInvalid;
  } else if (!goes_on) {
    state_ = State::kComplete;
  }
  const std::size_t words = std::min<std::size_t>(line_.size(), code_ == 0 ? 0 : 4);
  if (kept_ < kMaxText) {
    lines_.push_back(line_.substr(words));
    kept_ += lines_.back().size() + sizeof(std::string);
  }
  Wipe(line_);
  line_.clear();
}

Reply ReplyReader::Take() {
  std::string text;
  for (const std::string& line : lines_) {
    if (!text.empty()) text += ' ';
    text += line;
  }
  Reply reply{code_, corvane::PrintableBeginning(text, kMaxShown)};
  Wipe(text);
  Clear();
  return reply;
}

void ReplyReader::Clear() {
  Wipe(line_);
  for (std::string& line : lines_) Wipe(line);
  line_.clear();
  lines_.clear();
  octets_ = kept_ = 0;
  code_ = 0;
  state_ = State::kMore;
}

}  // namespace corvane_mail
