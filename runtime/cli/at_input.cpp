// SPDX-License-Identifier: MIT
#include "runtime/cli/at_input.h"

#include <utility>

#include "runtime/modem_driver/modem_request.h"

namespace corvane::cli {
namespace {

constexpr std::string_view kSecret = "(secret)";

/// How much of the command comes before its PIN or password; all of it if it has none.
std::size_t OpenPart(const std::string& command) {
  const std::string shown = ModemRequest(command).shown;
  // "(secret)" as it was typed is none.
  if (shown == command || !shown.ends_with(kSecret)) return command.size();
  return shown.size() - kSecret.size();
}

}  // namespace

std::string Masked(const std::string& command) {
  const std::size_t open = OpenPart(command);
  return command.substr(0, open) + std::string(command.size() - open, '*');
}

std::optional<std::string> AtInput::Take(const KeyPress& key) {
  switch (key.key) {
    case Key::kText:
      if (line_.size() + key.text.size() <= kLongest) line_ += key.text;
      break;
    case Key::kBackspace: RemoveLast(); break;
    case Key::kEscape: line_.clear(); break;
    case Key::kUp: Recall(-1); break;
    case Key::kDown: Recall(1); break;
    case Key::kEnter:
      if (!text_) Keep(line_);
      return std::exchange(line_, {});
    case Key::kPageUp:
    case Key::kPageDown:
    case Key::kHome:
    case Key::kEnd:
    case Key::kRedraw: break;
  }
  return std::nullopt;
}

void AtInput::Keep(const std::string& command) {
  const std::string open = command.substr(0, OpenPart(command));
  if (!open.empty() && (kept_.empty() || kept_.back() != open)) kept_.push_back(open);
  if (kept_.size() > kMostKept) kept_.pop_front();
  at_ = kept_.size();
}

void AtInput::Recall(int step) {
  if (text_ || (step < 0 && at_ == 0) || (step > 0 && at_ == kept_.size())) return;
  at_ = step < 0 ? at_ - 1 : at_ + 1;
  line_ = at_ == kept_.size() ? "" : kept_[at_];
}

void AtInput::RemoveLast() {
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
  while (!line_.empty() && continues(line_.back())) line_.pop_back();
  if (!line_.empty()) line_.pop_back();
}

}  // namespace corvane::cli
