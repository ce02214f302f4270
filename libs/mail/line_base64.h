// SPDX-License-Identifier: MIT
// Base64 in lines of 76 characters (RFC 2045 clause 6.8).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "libs/mail/message.h"

namespace mail {

/// Base64 without line breaks.
[[nodiscard]] std::string Base64(std::string_view octets);
/// In lines; CRLF after each of them.
[[nodiscard]] std::string Base64Lines(std::string_view octets);
/// The length of that for so many octets.
[[nodiscard]] std::uint64_t Base64LinesSize(std::uint64_t octets) noexcept;

/// Encodes octets while they are read, in lines.
class LineBase64 {
 public:
  /// @param octets null: cannot be read
  /// @param size exactly so many octets are encoded
  LineBase64(std::unique_ptr<Octets> octets, std::uint64_t size)
      : octets_(std::move(octets)), left_(size) {}

  /// The next characters. @return 0: the end, or failed()
  [[nodiscard]] std::size_t Read(std::span<char> buffer);
  [[nodiscard]] bool failed() const noexcept { return failed_; }

 private:
  static constexpr std::size_t kLines = 144;  // as many as are encoded at a time

  bool Refill();

  std::unique_ptr<Octets> octets_;
  std::uint64_t left_;  // octets not read yet
  std::string encoded_;
  std::size_t given_ = 0;  // characters of `encoded_`
  bool failed_ = false;
};

}  // namespace mail
