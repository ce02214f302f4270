// SPDX-License-Identifier: MIT
// The user-data header of an SMS (3GPP TS 23.040 clause 9.2.3.24). Elements that are not known are
// skipped, as the clause requires.
#pragma once

#include <cstdint>
#include <optional>

#include "libs/gsm/octet_reader.h"
#include "libs/gsm/seven_bit_text.h"

namespace gsm {

/// The place of a part in its message (clauses 9.2.3.24.1, 9.2.3.24.8); 1 <= sequence <= total.
struct Concatenation {
  std::uint16_t reference = 0;
  std::uint8_t total = 1;
  std::uint8_t sequence = 1;
  bool wide = false;  ///< 16-bit reference

  bool operator==(const Concatenation&) const = default;
};

/// Application ports (clauses 9.2.3.24.3, 9.2.3.24.4).
struct Ports {
  std::uint16_t destination = 0;
  std::uint16_t originator = 0;
  bool wide = true;  ///< 16 bits each, not 8

  bool operator==(const Ports&) const = default;
};

struct UserDataHeader {
  std::optional<Concatenation> concatenation;
  std::optional<Ports> ports;
  Shifts shifts;  ///< national language tables (clauses 9.2.3.24.15, 9.2.3.24.16)

  bool operator==(const UserDataHeader&) const = default;
};

/// The information elements after the length octet; if an element is given twice, the last one
/// counts. nullopt when they do not fill `octets` exactly.
[[nodiscard]] std::optional<UserDataHeader> ReadHeader(OctetSpan octets);

/// The header, beginning with its length octet; empty if it has no element.
[[nodiscard]] Octets WriteHeader(const UserDataHeader& header);

}  // namespace gsm
