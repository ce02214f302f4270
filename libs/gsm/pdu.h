// SPDX-License-Identifier: MIT
// SMS-DELIVER, SMS-SUBMIT and SMS-STATUS-REPORT PDUs, each after a service-centre address
// (3GPP TS 23.040 clauses 9.2.2.1 to 9.2.2.3; 3GPP TS 27.005 clause 3.1).
#pragma once

#include <chrono>
#include <optional>

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

/// What became of a message from the modem.
struct StatusReportPdu {
  Address service_centre;
  std::uint8_t message_reference = 0;  ///< of the SMS-SUBMIT
  Address recipient;
  TimeStamp time;            ///< when the service centre took the message
  TimeStamp discharge_time;  ///< when the outcome was known, or of the last attempt
  std::uint8_t status = 0;   ///< see OutcomeOf

  bool operator==(const StatusReportPdu&) const = default;
};

/// What a status means (clause 9.2.3.15).
enum class Outcome : std::uint8_t {
  kDelivered,    ///< 0x00: the receiver has it
  kPassedOn,     ///< any other below 0x20: done, but delivery is not confirmed
  kStillTrying,  ///< the service centre goes on; another report follows
  kFailed,       ///< the service centre has given up
};
[[nodiscard]] Outcome OutcomeOf(std::uint8_t status) noexcept;

/// The kind of a PDU from the network, according to its message type; kReserved: any other type.
enum class IncomingType : std::uint8_t { kDeliver, kStatusReport, kReserved };
/// nullopt: the octets end before the message type.
[[nodiscard]] std::optional<IncomingType> TypeOfIncoming(OctetSpan octets) noexcept;

/// Whether decoding succeeded, and if not, why and at which octet.
struct PduResult {
  PduError error = PduError::kNone;  ///< the first one
  std::size_t error_at = 0;
  /// Everything that matters was read: at most, an address or a time is malformed, or octets are
  /// left over at the end. Some networks send such messages, and their texts should not be lost.
  bool whole = false;

  explicit operator bool() const noexcept { return error == PduError::kNone; }
};

/// Errors: all of PduError. `pdu` then holds what was decoded: of a malformed address its first
/// digits, and a malformed time is not valid.
[[nodiscard]] PduResult DecodeDeliver(OctetSpan octets, DeliverPdu& pdu);
[[nodiscard]] PduResult DecodeSubmit(OctetSpan octets, SubmitPdu& pdu);
/// The optional parameters at the end are skipped: they say nothing about the outcome.
[[nodiscard]] PduResult DecodeStatusReport(OctetSpan octets, StatusReportPdu& pdu);

/// Its data coding scheme follows from the alphabet of the data.
[[nodiscard]] Octets EncodeDeliver(const DeliverPdu& pdu);
/// @param pdu its validity period has 0, 1 or 7 octets; 7 are written as an absolute time
[[nodiscard]] Octets EncodeSubmit(const SubmitPdu& pdu);
[[nodiscard]] Octets EncodeStatusReport(const StatusReportPdu& pdu);

/// The relative validity period of at least `time`, at most 63 weeks, in the steps of
/// clause 9.2.3.12.1: 5 min up to 12 h, 30 min up to 24 h, a day up to 30 days, a week from there
/// on.
[[nodiscard]] std::uint8_t RelativeValidity(std::chrono::minutes time) noexcept;

/// Octets of a PDU without its service-centre address, as +CMGL and AT+CMGS count them; 0 if the
/// address is longer than the PDU.
[[nodiscard]] std::size_t TpduLength(OctetSpan pdu) noexcept;

/// How many octets an SMS-DELIVER takes with its service-centre address, as its own length fields
/// say; what follows the user-data length need not be there. 0: `octets` do not begin with one.
[[nodiscard]] std::size_t DeliverSize(OctetSpan octets) noexcept;

}  // namespace gsm
