// SPDX-License-Identifier: MIT
// Bounds-checked cursor over the octets of one SMS PDU (3GPP TS 23.040).
// Borrows the octets; not synchronised: one reader belongs to one decode call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace gsm {

using Octets = std::vector<std::uint8_t>;
using OctetSpan = std::span<const std::uint8_t>;

/// Why a PDU was refused.
enum class PduError : std::uint8_t {
  kNone,
  kTruncated,  ///< fewer octets left than the field needs
  kBadDigit,   ///< semi-octet above 9 where a decimal digit is required
  kBadType,    ///< a message type that is not expected here
  kBadLength,  ///< a length field above what the standard allows
  kTrailing,   ///< octets left over after the last field
};

/// In words, for the operator: "octets are missing".
[[nodiscard]] std::string_view Describe(PduError error) noexcept;

/// Reads left to right, never past the end. Failure is sticky: after the first
/// one every read returns 0 or nothing and consumes nothing, so a decoder reads a whole
/// group of fields and then tests error(); error_at() is the 0-based octet at fault.
class OctetReader {
 public:
  explicit OctetReader(OctetSpan octets) noexcept : octets_(octets) {}

  /// How many octets have been read.
  [[nodiscard]] std::size_t position() const noexcept { return next_; }
  /// The next octet, which is not consumed; 0 when there is none.
  [[nodiscard]] std::uint8_t Peek() const noexcept;
  /// Next octet. Errors: kTruncated, and the value is then 0.
  std::uint8_t Next() noexcept;
  /// The next `count` octets. Errors: kTruncated, and the span is then empty.
  OctetSpan Take(std::size_t count) noexcept;
  /// Refuses the octet just read; an earlier error is kept.
  void Refuse(PduError why) noexcept;
  /// Refuses octets that are left over (kTrailing).
  void ExpectEnd() noexcept;

  [[nodiscard]] PduError error() const noexcept { return error_; }
  [[nodiscard]] std::size_t error_at() const noexcept { return error_at_; }

 private:
  OctetSpan octets_;
  std::size_t next_ = 0;  // invariant: next_ <= octets_.size()
  std::size_t error_at_ = 0;
  PduError error_ = PduError::kNone;
};

}  // namespace gsm
