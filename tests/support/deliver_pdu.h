// SPDX-License-Identifier: MIT
// SMS-DELIVER PDUs for tests, field by field (3GPP TS 23.040 clause 9.2.2.1). It shares no code
// with the codec that it tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test_support {

using Octets = std::vector<unsigned char>;

/// Octets as upper-case hexadecimal digits.
std::string Hex(const Octets& octets);
/// Septets, packed bit by bit.
Octets Pack(const std::string& septets);

/// The fields of a PDU in order; by default "Hello" from +15550101234 on 2024-03-05 09:07:03.
struct DeliverPdu {
  Octets service_centre = {0x07, 0x91, 0x51, 0x55, 0x10, 0x10, 0x32, 0xF0};
  unsigned char first_octet = 0x04;
  unsigned char address_length = 11;
  unsigned char address_type = 0x91;
  Octets address = {0x51, 0x55, 0x10, 0x10, 0x32, 0xF4};
  unsigned char protocol_identifier = 0x00;
  unsigned char coding_scheme = 0x00;
  Octets time_stamp = {0x42, 0x30, 0x50, 0x90, 0x70, 0x30, 0x00};
  unsigned char user_data_length = 5;
  Octets user_data = Pack("Hello");

  [[nodiscard]] Octets ToOctets() const;
  [[nodiscard]] std::string ToHex() const { return Hex(ToOctets()); }
};

/// A message with this text in septets.
DeliverPdu TextMessage(const std::string& septets);
/// Part `seq` of `total` in UCS-2, for a text of ASCII characters.
DeliverPdu Part(unsigned char ref, unsigned char total, unsigned char seq, const std::string& text);

}  // namespace test_support
