// SPDX-License-Identifier: MIT
// SMS-DELIVER decoding of any octets.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "addins/corvane_fb_lib/sms_delivered.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  sms::SMSDelivered message(1);
  message.decode(std::vector<unsigned char>(data, data + size));
  const bool decoded = message.status == 0;
  if (!decoded && message.status != 5) std::abort();
  // Three octets of UTF-8 for two of UCS-2, or eight characters for seven octets, at most.
  if (decoded && message.text.size() > 3 * size + sizeof "Can't read Data value") std::abort();
  if (message.storageIndex != 1) std::abort();
  return 0;
}
