// SPDX-License-Identifier: MIT
#include "libs/gsm/septets.h"

namespace gsm {

Octets PackSeptets(OctetSpan septets, unsigned fill_bits) {
  Octets octets;
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
  Octets septets;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t first_bit = fill_bits + 7 * i;
    const std::size_t octet = first_bit / 8;
    const auto shift = static_cast<unsigned>(first_bit % 8);
    if (first_bit + 7 > 8 * octets.size()) break;
    unsigned pair = octets[octet];
    if (shift > 1) pair |= static_cast<unsigned>(octets[octet + 1]) << 8;
    septets.push_back(static_cast<std::uint8_t>((pair >> shift) & 0x7F));
  }
  return septets;
}

}  // namespace gsm
