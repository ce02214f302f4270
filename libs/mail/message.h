// SPDX-License-Identifier: MIT
// What a mail consists of, before it is composed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libs/mail/address.h"

namespace mail {

/// Octets of an attachment, read from the beginning to the end.
class Octets {
 public:
  Octets() = default;
  Octets(const Octets&) = delete;
  Octets& operator=(const Octets&) = delete;
  virtual ~Octets() = default;

  /// Fills the beginning of `buffer`. @return how many octets; 0: the end, or they cannot be read
  [[nodiscard]] virtual std::size_t Read(std::span<char> buffer) = 0;
};

struct Attachment {
  std::string name;        ///< of the file, without its folder; decides the media type
  std::uint64_t size = 0;  ///< octets; fewer are an error (Composer::failed), more are left out
  std::function<std::unique_ptr<Octets>()> open;  ///< from the beginning; null: cannot be read
};

/// There are no blind copies: their addresses belong to the envelope alone.
struct Message {
  Address from;
  std::vector<Address> to, cc, reply_to;
  std::string subject;     ///< UTF-8; line breaks become blanks
  std::string text, html;  ///< UTF-8; either may be empty
  std::string message_id;  ///< as NewMessageId makes it
  std::chrono::sys_seconds date{};
  int zone_minutes = 0;  ///< local time minus UTC
  std::vector<Attachment> attachments;
};

}  // namespace mail
