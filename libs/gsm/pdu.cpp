// SPDX-License-Identifier: MIT
#include "libs/gsm/pdu.h"

namespace gsm {
namespace {

constexpr std::uint8_t kTypeMask = 0x03;
constexpr std::uint8_t kDeliver = 0x00;
constexpr std::uint8_t kSubmit = 0x01;
constexpr std::uint8_t kNoMoreMessages = 0x04;
constexpr std::uint8_t kStatusReportRequest = 0x20;
constexpr std::uint8_t kHeaderIndicator = 0x40;

/// Octets of the validity period, from its format in bits 4 and 3: none, enhanced, relative,
/// absolute (clause 9.2.3.3).
std::size_t ValidityOctets(std::uint8_t first_octet) {
  constexpr std::size_t kOctets[] = {0, 7, 1, 7};
  return kOctets[(first_octet >> 3) & 0x03];
}

std::uint8_t ReadFirstOctet(OctetReader& in, std::uint8_t type) {
  const std::uint8_t first = in.Next();
  if ((first & kTypeMask) != type) in.Refuse(PduError::kBadType);
  return first;
}

PduResult Finish(OctetReader& in) {
  in.ExpectEnd();
  return {in.error(), in.error_at()};
}

}  // namespace

PduResult DecodeDeliver(OctetSpan octets, DeliverPdu& pdu) {
  OctetReader in(octets);
  pdu.service_centre = ReadServiceCentre(in);
  const std::uint8_t first = ReadFirstOctet(in, kDeliver);
  pdu.originator = ReadAddress(in);
  pdu.protocol_identifier = in.Next();
  pdu.data_coding_scheme = in.Next();
  pdu.time = ReadTimeStamp(in);
  pdu.data = ReadUserData(in, pdu.data_coding_scheme, (first & kHeaderIndicator) != 0);
  return Finish(in);
}

PduResult DecodeSubmit(OctetSpan octets, SubmitPdu& pdu) {
  OctetReader in(octets);
  pdu.service_centre = ReadServiceCentre(in);
  const std::uint8_t first = ReadFirstOctet(in, kSubmit);
  pdu.status_report_requested = (first & kStatusReportRequest) != 0;
  pdu.message_reference = in.Next();
  pdu.destination = ReadAddress(in);
  pdu.protocol_identifier = in.Next();
  pdu.data_coding_scheme = in.Next();
  const OctetSpan validity = in.Take(ValidityOctets(first));
  pdu.validity_period.assign(validity.begin(), validity.end());
  pdu.data = ReadUserData(in, pdu.data_coding_scheme, (first & kHeaderIndicator) != 0);
  return Finish(in);
}

Octets EncodeDeliver(const DeliverPdu& pdu) {
  Octets out;
  WriteServiceCentre(pdu.service_centre, out);
  const bool has_header = pdu.data.concatenation.has_value();
  out.push_back(kDeliver | kNoMoreMessages | (has_header ? kHeaderIndicator : 0));
  WriteAddress(pdu.originator, out);
  out.push_back(pdu.protocol_identifier);
  out.push_back(DataCodingScheme(pdu.data.alphabet));
  WriteTimeStamp(pdu.time, out);
  WriteUserData(pdu.data, out);
  return out;
}

std::size_t TpduLength(OctetSpan pdu) noexcept {
  if (pdu.empty()) return 0;
  const std::size_t address = std::size_t{pdu[0]} + 1;
  return address < pdu.size() ? pdu.size() - address : 0;
}

std::size_t DeliverSize(OctetSpan octets) noexcept {
  constexpr std::size_t kTimeStamp = 7;
  OctetReader in(octets);
  const std::size_t service_centre = in.Next();
  in.Take(service_centre);
  ReadFirstOctet(in, kDeliver);
  const std::size_t originator = (in.Next() + std::size_t{1}) / 2;  // from its semi-octets
  in.Take(1 + originator);                                          // with its type
  in.Next();                                                        // the protocol identifier
  const Alphabet alphabet = AlphabetOf(in.Next());
  in.Take(kTimeStamp);
  const std::size_t length = in.Next();
  if (in.error() != PduError::kNone) return 0;
  const std::size_t data = alphabet == Alphabet::kDefault ? (length * 7 + 7) / 8 : length;
  return 1 + service_centre + 1 + 2 + originator + 2 + kTimeStamp + 1 + data;
}

}  // namespace gsm
