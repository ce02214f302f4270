// SPDX-License-Identifier: MIT
// Seven-bit characters packed into octets (3GPP TS 23.038 clause 6.1.2.1).
#pragma once

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// Packs characters (0..127), the first one after `fill_bits` (0..6) zero bits.
[[nodiscard]] Octets PackSeptets(OctetSpan septets, unsigned fill_bits = 0);

/// Unpacks `count` characters from `octets`, the first one after `fill_bits` (0..6) bits; fewer if
/// the octets end before that.
[[nodiscard]] Octets UnpackSeptets(OctetSpan octets, std::size_t count, unsigned fill_bits = 0);

}  // namespace gsm
