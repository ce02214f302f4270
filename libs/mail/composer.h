// SPDX-License-Identifier: MIT
// Composes a mail (RFC 5322, 2045 to 2047, 2231, 6532) as a stream of octets. Attachments are read
// while they are given out and are never in memory as a whole. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libs/mail/line_base64.h"
#include "libs/mail/message.h"

namespace mail {

/// Whether an address in the header needs a server that offers SMTPUTF8 (RFC 6531).
[[nodiscard]] bool NeedsSmtpUtf8(const Message& message);

/// The octets of a mail: lines that end with CRLF, none longer than 998 octets, dots not doubled
/// (RFC 5321 clause 4.5.2 leaves that to the transfer). The same message always gives the same
/// octets. Whatever it contains, it adds no line to the header: line breaks in it become blanks
/// there, invalid UTF-8 U+FFFD. In a text LF and CRLF end a line; a CR by itself is kept as a
/// character.
class Composer {
 public:
  /// @param smtputf8 whether the server takes UTF-8 in addresses. If it does not, an address that
  /// needs it is written as a name without an address (RFC 6857)
  Composer(const Message& message, bool smtputf8);

  /// Octets that Read gives out in total.
  [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

  /// The next octets. @return fewer than the buffer has only at the end; 0: the end, or failed()
  [[nodiscard]] std::size_t Read(std::span<char> buffer);
  /// Begins again from the first octet; attachments are opened again.
  void Rewind();

  /// Whether an attachment could not be read, or had fewer octets than its size says: what was
  /// given out is not the whole mail.
  [[nodiscard]] bool failed() const noexcept { return failed_; }

 private:
  /// Text, and after it an attachment, which may be empty.
  struct Piece {
    std::string text;
    Attachment attachment;
  };

  void AddAttachments(const Message& message);
  std::size_t ReadText(std::span<char> buffer);
  std::size_t ReadAttachment(std::span<char> buffer);

  std::vector<Piece> pieces_;
  std::uint64_t size_ = 0;

  std::size_t piece_ = 0;                // the one being read
  std::size_t text_read_ = 0;            // octets of its text
  std::unique_ptr<LineBase64> encoder_;  // of its attachment, once that is being read
  bool failed_ = false;
};

}  // namespace mail
