// SPDX-License-Identifier: MIT
// Addresses in an SMS PDU: numbers and alphanumeric senders (3GPP TS 23.040 clause 9.1.2.5).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// As people write it: "+31641600986" (international), "4040", "Diafaan" (alphanumeric). An
/// international number begins with '+'; any other number consists of 0-9 * # a b c.
using Address = std::string;

/// Whether `text` is a number: an optional '+' and 1..20 digits.
[[nodiscard]] bool IsNumber(std::string_view text);

/// Whether `text` can be an address: a number, or 1..11 septets of the default alphabet.
[[nodiscard]] bool IsAddress(std::string_view text);

/// Originating or destination address: length in semi-octets, type, value. Errors: kTruncated,
/// kBadLength (above 20 semi-octets), kBadDigit (a filler before the end).
[[nodiscard]] Address ReadAddress(OctetReader& in);
/// An empty address is written without digits, as in a stored message without a receiver.
void WriteAddress(const Address& address, Octets& out);

/// Service-centre address before the TPDU (3GPP TS 27.005 clause 3.1): length in octets with the
/// type, 0 for none, which yields an empty address. Errors: as above.
[[nodiscard]] Address ReadServiceCentre(OctetReader& in);
void WriteServiceCentre(const Address& address, Octets& out);

/// The type-of-address octet: 0x91 international, 0x81 other number or none, 0xD0 alphanumeric.
[[nodiscard]] std::uint8_t TypeOfAddress(const Address& address);

}  // namespace gsm
