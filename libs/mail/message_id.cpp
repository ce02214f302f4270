// SPDX-License-Identifier: MIT
#include "libs/mail/message_id.h"

#include <cstdint>
#include <random>

namespace mail {

std::string NewMessageId(std::string_view domain) {
  constexpr std::string_view kHexadecimal = "0123456789abcdef";
  std::random_device source("/dev/urandom");  // 32 bits each
  std::string id = "<";
  for (int word = 0; word < 4; ++word) {
    std::uint32_t bits = source();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) id += kHexadecimal[bits & 0xF];
  }
  return id.append("@").append(domain).append(">");
}

}  // namespace mail
