// SPDX-License-Identifier: MIT
#include "libs/gsm/octet_reader.h"

namespace gsm {

std::string_view Describe(PduError error) noexcept {
  switch (error) {
    case PduError::kNone: return "no error";
    case PduError::kTruncated: return "octets are missing";
    case PduError::kBadDigit: return "a decimal digit is above 9";
    case PduError::kBadType: return "the message type is not expected here";
    case PduError::kBadLength: return "a length is above what is allowed";
    case PduError::kTrailing: return "octets are left over";
  }
  return "unknown error";
}

std::uint8_t OctetReader::Peek() const noexcept {
  return error_ == PduError::kNone && next_ < octets_.size() ? octets_[next_] : std::uint8_t{0};
}

std::uint8_t OctetReader::Next() noexcept {
  const OctetSpan octet = Take(1);
  return octet.empty() ? std::uint8_t{0} : octet[0];
}

OctetSpan OctetReader::Take(std::size_t count) noexcept {
  if (error_ != PduError::kNone) return {};
  if (count > octets_.size() - next_) {
    error_ = PduError::kTruncated;
    error_at_ = octets_.size();
    return {};
  }
  const OctetSpan taken = octets_.subspan(next_, count);
  next_ += count;
  return taken;
}

void OctetReader::Refuse(PduError why) noexcept {
  if (error_ != PduError::kNone) return;
  error_ = why;
  error_at_ = next_ == 0 ? 0 : next_ - 1;
}

void OctetReader::ExpectEnd() noexcept {
  if (error_ != PduError::kNone || next_ == octets_.size()) return;
  error_ = PduError::kTrailing;
  error_at_ = next_;
}

}  // namespace gsm
