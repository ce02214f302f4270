// SPDX-License-Identifier: MIT
// Decodes keys from the octets that a terminal sends. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::cli {

enum class Key : std::uint8_t {
  kText,  ///< a character
  kUp,
  kDown,
  kPageUp,
  kPageDown,
  kHome,
  kEnd,
  kEnter,
  kEscape,
  kBackspace,
  kRedraw,  ///< Ctrl-L
};

struct KeyPress {
  Key key;
  std::string text;  ///< of kText: one character in UTF-8
  friend bool operator==(const KeyPress&, const KeyPress&) = default;
};

/// What one type of terminal sends for a key.
struct KeySequence {
  std::string octets;  ///< two or more
  Key key;
};

/// Knows the sequences of ECMA-48 terminals (xterm, the Linux console, VT220, rxvt) and those that
/// it is given. Unknown sequences and control characters are dropped as a whole.
class KeyDecoder {
 public:
  explicit KeyDecoder(std::vector<KeySequence> own = {});

  /// Accepts octets in pieces of any length; returns the keys that are complete.
  [[nodiscard]] std::vector<KeyPress> Take(std::string_view octets);
  /// Whether the beginning of a sequence waits for its rest; it may be the Esc key itself.
  [[nodiscard]] bool Waiting() const { return !rest_.empty(); }
  /// Nothing has followed for some time: an Esc was the key itself; any other beginning is dropped.
  [[nodiscard]] std::vector<KeyPress> TimeOut();

 private:
  [[nodiscard]] std::size_t Next(std::vector<KeyPress>& keys) const;
  [[nodiscard]] std::size_t NextSequence(std::vector<KeyPress>& keys) const;

  std::vector<KeySequence> sequences_;
  std::string rest_;  // at most kLongestSequence octets of a sequence that is not complete
};

}  // namespace corvane::cli
