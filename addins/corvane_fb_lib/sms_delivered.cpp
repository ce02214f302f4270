// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms_delivered.h"

#include <algorithm>
#include <cstddef>

#include "addins/corvane_fb_lib/sms.h"
#include "share/file_time.h"

namespace sms {
namespace {

constexpr std::int32_t kRejected = 5;
constexpr const char* kTruncated = "The PDU is truncated.";

/// Reads octets from left to right and never past the end: a missing octet reads as 0, and
/// truncated() is true from then on.
class OctetReader {
 public:
  explicit OctetReader(const std::vector<unsigned char>& octets)
      : next_(octets.begin()), end_(octets.end()) {}

  unsigned char Next() {
    if (next_ == end_) {
      truncated_ = true;
      return 0;
    }
    return *next_++;
  }
  /// Skips `count` octets, or those that are left. @return the first of them
  ByteIterator Skip(std::size_t count) {
    const ByteIterator first = next_;
    const auto left = static_cast<std::size_t>(end_ - next_);
    truncated_ = truncated_ || count > left;
    next_ += static_cast<std::ptrdiff_t>(std::min(count, left));
    return first;
  }
  [[nodiscard]] ByteIterator next() const { return next_; }
  [[nodiscard]] ByteIterator end() const { return end_; }
  [[nodiscard]] bool truncated() const { return truncated_; }

 private:
  ByteIterator next_;
  ByteIterator end_;
  bool truncated_ = false;
};

/// Semi-octets up to the filler, but at most `max_octets` octets. They need not be decimal.
void ReadDigits(OctetReader& in, unsigned max_octets, std::string& number) {
  for (unsigned i = 0; i < max_octets; ++i) {
    const unsigned octet = in.Next();
    if (in.truncated()) return;
    number += static_cast<char>('0' + (octet & 0x0F));
    if (octet >> 4 == 0x0F) return;
    number += static_cast<char>('0' + (octet >> 4));
  }
}

/// Address of `length` semi-octets (clause 9.1.2.5), with the octet counts that decode() describes.
std::string ReadAddress(OctetReader& in, unsigned length, unsigned type) {
  if (type == 0xD0) {  // a name in septets
    const auto name = in.Skip(length * 4 / 7);
    return DecodeTextMessage(name, in.next());
  }
  std::string number = type == 0x91 ? "+" : "";
  ReadDigits(in, type == 0x81 ? length / 2 : length, number);
  return number;
}

/// A number from 0 to 165 whose first digit is in the low half.
std::uint16_t ReadSwapped(OctetReader& in) {
  const unsigned octet = in.Next();
  return static_cast<std::uint16_t>((octet & 0x0F) * 10 + (octet >> 4));
}

/// Time stamp (clause 9.2.3.11). The time zone is skipped.
RTime ReadTime(OctetReader& in) {
  RTime time{};
  time.year = static_cast<std::uint16_t>(2000 + ReadSwapped(in));
  time.month = ReadSwapped(in);
  time.day = ReadSwapped(in);
  time.hour = ReadSwapped(in);
  time.minute = ReadSwapped(in);
  time.second = ReadSwapped(in);
  in.Skip(1);
  return time;
}

}  // namespace

void SMSDelivered::Reject(const char* reason) {
  status = kRejected;
  text = reason;
}

void SMSDelivered::decode(const std::vector<unsigned char>& pdu) {
  if (pdu.empty()) return;
  OctetReader in(pdu);

  const unsigned service_centre_length = in.Next();
  if (service_centre_length > 0x7F) {
    status = kRejected;
    return;
  }
  in.Skip(service_centre_length);
  const unsigned first_octet = in.Next();
  if (in.truncated()) return Reject(kTruncated);
  if ((first_octet & 0x01) != 0) return Reject("The pdu parameter is not an SMS-DELIVER PDU.");

  const unsigned address_length = in.Next();
  const unsigned address_type = in.Next();
  if (in.truncated()) return Reject(kTruncated);
  number = ReadAddress(in, address_length, address_type);

  const unsigned protocol_identifier = in.Next();
  if (in.truncated()) return Reject(kTruncated);
  if (protocol_identifier != 0) return Reject("The PDU's TP-PID field must have the value 0x00.");

  const unsigned coding_scheme = in.Next();
  const RTime time_stamp = ReadTime(in);
  in.Skip(1);  // the user-data length
  if (in.truncated()) return Reject(kTruncated);
  time = RTimeToFileTime(&time_stamp);

  if ((first_octet & 0x40) != 0) {  // a user-data header; clause 9.2.3.24.1
    const auto header = in.Skip(6);
    if (in.truncated()) return Reject(kTruncated);
    ref = header[3];
    total = header[4];
    seq = header[5];
  }
  switch (coding_scheme) {
    case 0x00: text = DecodeTextMessage(in.next(), in.end()); break;
    case 0x04: text = "Can't read Data value"; break;
    case 0x08: text = s_ucs2_to_utf8(in.next(), in.end(), true); break;
    default: break;
  }
}

}  // namespace sms
