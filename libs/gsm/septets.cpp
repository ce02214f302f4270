// SPDX-License-Identifier: MIT
#include "libs/gsm/septets.h"

#include <algorithm>

namespace gsm {

Octets PackSeptets(OctetSpan septets, unsigned fill_bits) {
  Octets octets;
  octets.reserve((fill_bits + 7 * septets.size() + 7) / 8);
  unsigned waiting = 0;  // bits that do not fill an octet yet, the oldest lowest
  unsigned bits = fill_bits;
  for (const std::uint8_t septet : septets) {
    waiting |= static_cast<unsigned>(septet & 0x7F) << bits;
    bits += 7;
    for (; bits >= 8; bits -= 8, waiting >>= 8) {
      octets.push_back(static_cast<std::uint8_t>(waiting & 0xFF));
    }
  }
  if (bits > 0) octets.push_back(static_cast<std::uint8_t>(waiting & 0xFF));
  return octets;
}

Octets UnpackSeptets(OctetSpan octets, std::size_t count, unsigned fill_bits) {
  const std::size_t bits = 8 * octets.size();
  const std::size_t there = bits < fill_bits ? 0 : (bits - fill_bits) / 7;
  Octets septets(std::min(count, there));
  if (septets.empty()) return septets;
  unsigned waiting = static_cast<unsigned>(octets[0]) >> fill_bits;  // the oldest bit lowest
  unsigned waiting_bits = 8 - fill_bits;
  std::size_t next = 1;
  for (std::uint8_t& septet : septets) {
    if (waiting_bits < 7) {
      waiting |= static_cast<unsigned>(octets[next++]) << waiting_bits;
      waiting_bits += 8;
    }
    septet = static_cast<std::uint8_t>(waiting & 0x7F);
    waiting >>= 7;
    waiting_bits -= 7;
  }
  return septets;
}

}  // namespace gsm
