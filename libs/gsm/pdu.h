// SPDX-License-Identifier: MIT
// SMS-DELIVER and SMS-SUBMIT PDUs with the service-centre address in front
// (3GPP TS 23.040 clauses 9.2.2.1, 9.2.2.2; 3GPP TS 27.005 clause 3.1).
#pragma once

#include "libs/gsm/address.h"
#include "libs/gsm/octet_reader.h"
#include "libs/gsm/time_stamp.h"
#include "libs/gsm/user_data.h"

namespace gsm {

/// A message to the modem, or a part of one.
struct DeliverPdu {
  Address service_centre;  ///< empty: none
  Address originator;
  std::uint8_t protocol_identifier = 0;
  std::uint8_t data_coding_scheme = 0;
  TimeStamp time;
  UserData data;
};

/// A message from the modem, or a part of one.
struct SubmitPdu {
  Address service_centre;  ///< empty: the one that the modem knows
  std::uint8_t message_reference = 0;
  Address destination;
  std::uint8_t protocol_identifier = 0;
  std::uint8_t data_coding_scheme = 0;
  Octets validity_period;  ///< 0, 1 or 7 octets
  bool status_report_requested = false;
  UserData data;
};

/// Whether decoding succeeded, and else why not and at which octet.
struct PduResult {
  PduError error = PduError::kNone;
  std::size_t error_at = 0;

  explicit operator bool() const noexcept { return error == PduError::kNone; }
};

/// Errors: all of PduError. `pdu` then holds what was decoded so far.
[[nodiscard]] PduResult DecodeDeliver(OctetSpan octets, DeliverPdu& pdu);
[[nodiscard]] PduResult DecodeSubmit(OctetSpan octets, SubmitPdu& pdu);

/// Its data coding scheme follows from the alphabet of the data.
[[nodiscard]] Octets EncodeDeliver(const DeliverPdu& pdu);

/// Octets of a PDU without its service-centre address, as +CMGL and AT+CMGS count them; 0 where the
/// address is longer than the PDU.
[[nodiscard]] std::size_t TpduLength(OctetSpan pdu) noexcept;

/// How many octets an SMS-DELIVER takes with its service-centre address, as its own length fields
/// say; what follows the user-data length need not be there. 0: `octets` do not begin with one.
[[nodiscard]] std::size_t DeliverSize(OctetSpan octets) noexcept;

}  // namespace gsm
