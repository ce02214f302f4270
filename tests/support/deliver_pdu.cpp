// SPDX-License-Identifier: MIT
#include "tests/support/deliver_pdu.h"

#include <cstdio>

namespace test_support {

std::string Hex(const Octets& octets) {
  std::string text;
  char digits[3];
  for (const unsigned char octet : octets) {
    std::snprintf(digits, sizeof digits, "%02X", octet);
    text += digits;
  }
  return text;
}

Octets Pack(const std::string& septets) {
  Octets octets((septets.size() * 7 + 7) / 8);
  for (std::size_t bit = 0; bit < septets.size() * 7; ++bit) {
    const int value = septets[bit / 7] >> (bit % 7) & 1;
    octets[bit / 8] = static_cast<unsigned char>(octets[bit / 8] | value << (bit % 8));
  }
  return octets;
}

Octets DeliverPdu::ToOctets() const {
  Octets pdu = service_centre;
  pdu.insert(pdu.end(), {first_octet, address_length, address_type});
  pdu.insert(pdu.end(), address.begin(), address.end());
  pdu.insert(pdu.end(), {protocol_identifier, coding_scheme});
  pdu.insert(pdu.end(), time_stamp.begin(), time_stamp.end());
  pdu.push_back(user_data_length);
  pdu.insert(pdu.end(), user_data.begin(), user_data.end());
  return pdu;
}

DeliverPdu TextMessage(const std::string& septets) {
  DeliverPdu pdu;
  pdu.user_data_length = static_cast<unsigned char>(septets.size());
  pdu.user_data = Pack(septets);
  return pdu;
}

DeliverPdu Part(unsigned char ref, unsigned char total, unsigned char seq,
                const std::string& text) {
  DeliverPdu pdu;
  pdu.first_octet = 0x44;
  pdu.coding_scheme = 0x08;
  pdu.user_data = {0x05, 0x00, 0x03, ref, total, seq};
  for (const char character : text) {
    pdu.user_data.push_back(0);
    pdu.user_data.push_back(static_cast<unsigned char>(character));
  }
  pdu.user_data_length = static_cast<unsigned char>(pdu.user_data.size());
  return pdu;
}

}  // namespace test_support
