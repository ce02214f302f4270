// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_keys.h"

#include <utf8.h>

#include <algorithm>

namespace corvane::cli {
namespace {

constexpr char kEsc = '\x1b';
constexpr std::size_t kLongestSequence = 32;  // octets; no key sends a longer sequence

/// The length in octets of the sequence at the start of `text`, which begins with Esc; 0: not
/// complete.
std::size_t SequenceLength(std::string_view text) {
  if (text.size() < 2) return 0;
  if (text[1] == 'O') return text.size() < 3 ? 0 : 3;
  if (text[1] != '[') return 1;  // Esc, and then another key
  for (std::size_t at = 2; at < text.size(); ++at) {
    if (text[at] >= '@' && text[at] <= '~') return at + 1;
  }
  return text.size() > kLongestSequence ? text.size() : 0;
}

void AddControl(char octet, std::vector<KeyPress>& keys) {
  switch (octet) {
    case '\r':
    case '\n': keys.push_back({Key::kEnter, ""}); break;
    case '\b':
    case '\x7f': keys.push_back({Key::kBackspace, ""}); break;
    case '\f': keys.push_back({Key::kRedraw, ""}); break;
    default: break;
  }
}

}  // namespace

KeyDecoder::KeyDecoder(std::vector<KeySequence> own) : sequences_(std::move(own)) {
  for (const char* introducer : {"\x1b[", "\x1bO"}) {
    const std::string begin = introducer;
    sequences_.insert(sequences_.end(), {{begin + "A", Key::kUp},
                                         {begin + "B", Key::kDown},
                                         {begin + "H", Key::kHome},
                                         {begin + "F", Key::kEnd}});
  }
  sequences_.insert(sequences_.end(), {{"\x1b[5~", Key::kPageUp},
                                       {"\x1b[6~", Key::kPageDown},
                                       {"\x1b[1~", Key::kHome},
                                       {"\x1b[7~", Key::kHome},
                                       {"\x1b[4~", Key::kEnd},
                                       {"\x1b[8~", Key::kEnd}});
}

std::vector<KeyPress> KeyDecoder::Take(std::string_view octets) {
  rest_ += octets;
  std::vector<KeyPress> keys;
  while (!rest_.empty()) {
    const std::size_t taken = Next(keys);
    if (taken == 0) break;
    rest_.erase(0, taken);
  }
  return keys;
}

std::vector<KeyPress> KeyDecoder::TimeOut() {
  std::vector<KeyPress> keys;
  if (!rest_.empty() && rest_.front() == kEsc) keys.push_back({Key::kEscape, ""});
  rest_.clear();
  return keys;
}

/// Adds the key at the start of `rest_`, if it is one; returns the number of its octets, or 0 if
/// more are needed.
std::size_t KeyDecoder::Next(std::vector<KeyPress>& keys) const {
  for (const KeySequence& sequence : sequences_) {
    if (!rest_.starts_with(sequence.octets)) continue;
    keys.push_back({sequence.key, ""});
    return sequence.octets.size();
  }
  if (rest_.front() == kEsc) return NextSequence(keys);
  if (static_cast<unsigned char>(rest_.front()) < 0x20 || rest_.front() == '\x7f') {
    AddControl(rest_.front(), keys);
    return 1;
  }
  auto end = rest_.begin();
  try {
    utf8::next(end, rest_.end());
  } catch (const utf8::not_enough_room&) {
    return 0;
  } catch (const utf8::exception&) {
    return 1;
  }
  keys.push_back({Key::kText, std::string(rest_.begin(), end)});
  return keys.back().text.size();
}

std::size_t KeyDecoder::NextSequence(std::vector<KeyPress>& keys) const {
  const bool beginning = std::any_of(sequences_.begin(), sequences_.end(),
                                     [this](const auto& s) { return s.octets.starts_with(rest_); });
  const std::size_t length = beginning ? 0 : SequenceLength(rest_);
  if (length == 1) keys.push_back({Key::kEscape, ""});
  return length;
}

}  // namespace corvane::cli
