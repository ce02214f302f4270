// SPDX-License-Identifier: MIT
// SMS PDUs through libgammu: a codec independent of ours. Only tests and benchmarks link it.
// Threads: one.
#pragma once

#include <string>
#include <vector>

namespace test_support {

/// How libgammu decodes a PDU that begins with a service-centre address.
struct GammuMessage {
  bool decoded = false;
  std::string number;
  std::string text;  ///< UTF-8
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int ref = 0, total = 0, seq = 0;  ///< 0 without a concatenation header
};
GammuMessage GammuDecode(const std::vector<unsigned char>& pdu);

/// The end of an SMS-SUBMIT as libgammu encodes it.
struct GammuUserData {
  unsigned length = 0;  ///< user-data length
  std::vector<unsigned char> octets;
};
/// The parts of a text (UTF-8) that needs no escapes in the default alphabet.
std::vector<GammuUserData> GammuEncode(const std::string& text, const std::string& number,
                                       bool ucs2);

}  // namespace test_support
