// SPDX-License-Identifier: MIT
// Replies of a mail server (RFC 5321 clause 4.2), read from a stream of octets. Whatever a server
// sends, a reply costs a few kilobytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane_mail {

struct Reply {
  int code = 0;      ///< 200 to 599; 0: none
  std::string text;  ///< the server's words without the code: one line of printable UTF-8
};

/// `550 5.1.1 no such user`; only the code if there are no words; empty without a code.
[[nodiscard]] std::string WordsOf(const Reply& reply);

class ReplyReader {
 public:
  enum class State : std::uint8_t {
    kMore,      ///< the reply is not complete
    kComplete,  ///< Take has it
    kInvalid,   ///< a line without a code: this is no mail server
    kTooLong,   ///< a reply of more than kMaxOctets
  };
  /// The longest reply that is read to its end, in octets.
  static constexpr std::size_t kMaxOctets = 1 << 20;
  /// What is kept of a line, and of all lines of a reply, in octets.
  static constexpr std::size_t kMaxLine = 1024;
  static constexpr std::size_t kMaxText = 4096;

  ReplyReader() = default;
  ReplyReader(const ReplyReader&) = delete;
  ReplyReader& operator=(const ReplyReader&) = delete;
  ~ReplyReader() { Clear(); }

  /// Reads up to the end of one reply. @return how many octets it has used; the rest belongs to the
  /// next reply. Uses nothing in another state than kMore.
  std::size_t Feed(std::string_view octets);
  [[nodiscard]] State state() const { return state_; }
  /// True if the beginning of a reply has been read.
  [[nodiscard]] bool HasBegun() const { return octets_ > 0; }
  /// The code of the lines so far; 0 if there is none.
  [[nodiscard]] int code() const { return code_; }
  /// The words of each line so far as they came, their beginnings at least.
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  /// The reply so far; the reader begins the next one.
  Reply Take();
  /// Begins the next one. Wipes what was read: a server may have repeated a secret.
  void Clear();

 private:
  void EndLine();

  State state_ = State::kMore;
  std::size_t octets_ = 0;  // of this reply
  std::size_t kept_ = 0;    // of all its lines
  int code_ = 0;
  std::string line_;
  std::vector<std::string> lines_;
};

}  // namespace corvane_mail
