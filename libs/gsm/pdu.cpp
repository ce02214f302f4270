// SPDX-License-Identifier: MIT
#include "libs/gsm/pdu.h"

#include <algorithm>
#include <ratio>

namespace gsm {
namespace {

constexpr std::uint8_t kTypeMask = 0x03;
constexpr std::uint8_t kDeliver = 0x00;
constexpr std::uint8_t kSubmit = 0x01;
constexpr std::uint8_t kStatusReport = 0x02;
constexpr std::uint8_t kNoMoreMessages = 0x04;
constexpr std::uint8_t kStatusReportRequest = 0x20;
constexpr std::uint8_t kHeaderIndicator = 0x40;
constexpr std::uint8_t kRelativeValidity = 0x10;
constexpr std::uint8_t kAbsoluteValidity = 0x18;
constexpr std::size_t kTimeStampOctets = 7;
constexpr std::size_t kMostOctetsOfAPdu = 12 + 164;  // with the service centre

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

std::uint8_t HeaderBit(const UserData& data) {
  return data.header == UserDataHeader{} ? 0 : kHeaderIndicator;
}

std::uint8_t ValidityBits(const Octets& period) {
  if (period.empty()) return 0;
  return period.size() == 1 ? kRelativeValidity : kAbsoluteValidity;
}

/// Reads a PDU from the network. A malformed address or time is noted, and reading goes on after
/// it.
class IncomingReader {
 public:
  explicit IncomingReader(OctetSpan octets) : in(octets) {}

  Address ServiceCentre() { return Field<Address>(std::size_t{1} + in.Peek(), ReadServiceCentre); }
  Address AddressField() {
    return Field<Address>(2 + (in.Peek() + std::size_t{1}) / 2, ReadAddress);
  }
  TimeStamp Time() { return Field<TimeStamp>(kTimeStampOctets, ReadTimeStamp); }
  /// What has happened so far.
  [[nodiscard]] PduResult Result() const {
    const bool whole = in.error() == PduError::kNone || in.error() == PduError::kTrailing;
    const bool noted = whole && noted_.error != PduError::kNone;
    return noted ? PduResult{noted_.error, noted_.error_at, true}
                 : PduResult{in.error(), in.error_at(), whole};
  }

  OctetReader in;

 private:
  template <class Value>
  Value Field(std::size_t octets, Value (*read)(OctetReader&)) {
    const std::size_t begin = in.position();
    OctetReader field(in.Take(octets));
    Value value = read(field);
    if (field.error() != PduError::kNone && noted_.error == PduError::kNone) {
      noted_ = {field.error(), begin + field.error_at()};
    }
    return value;
  }

  PduResult noted_;
};

PduResult Finish(OctetReader& in) {
  in.ExpectEnd();
  return {in.error(), in.error_at(), in.error() == PduError::kNone};
}

}  // namespace

PduResult DecodeDeliver(OctetSpan octets, DeliverPdu& pdu) {
  IncomingReader fields(octets);
  OctetReader& in = fields.in;
  pdu.service_centre = fields.ServiceCentre();
  const std::uint8_t first = ReadFirstOctet(in, kDeliver);
  pdu.originator = fields.AddressField();
  pdu.protocol_identifier = in.Next();
  pdu.data_coding_scheme = in.Next();
  pdu.time = fields.Time();
  pdu.data = ReadUserData(in, pdu.data_coding_scheme, (first & kHeaderIndicator) != 0);
  in.ExpectEnd();
  return fields.Result();
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

PduResult DecodeStatusReport(OctetSpan octets, StatusReportPdu& pdu) {
  IncomingReader fields(octets);
  pdu.service_centre = fields.ServiceCentre();
  ReadFirstOctet(fields.in, kStatusReport);
  pdu.message_reference = fields.in.Next();
  pdu.recipient = fields.AddressField();
  pdu.time = fields.Time();
  pdu.discharge_time = fields.Time();
  pdu.status = fields.in.Next();
  return fields.Result();
}

Octets EncodeDeliver(const DeliverPdu& pdu) {
  Octets out;
  out.reserve(kMostOctetsOfAPdu);
  WriteServiceCentre(pdu.service_centre, out);
  out.push_back(kDeliver | kNoMoreMessages | HeaderBit(pdu.data));
  WriteAddress(pdu.originator, out);
  out.push_back(pdu.protocol_identifier);
  out.push_back(DataCodingScheme(pdu.data.alphabet));
  WriteTimeStamp(pdu.time, out);
  WriteUserData(pdu.data, out);
  return out;
}

Octets EncodeSubmit(const SubmitPdu& pdu) {
  Octets out;
  out.reserve(kMostOctetsOfAPdu);
  WriteServiceCentre(pdu.service_centre, out);
  const std::uint8_t report = pdu.status_report_requested ? kStatusReportRequest : 0;
  out.push_back(kSubmit | ValidityBits(pdu.validity_period) | report | HeaderBit(pdu.data));
  out.push_back(pdu.message_reference);
  WriteAddress(pdu.destination, out);
  out.push_back(pdu.protocol_identifier);
  out.push_back(pdu.data_coding_scheme);
  out.insert(out.end(), pdu.validity_period.begin(), pdu.validity_period.end());
  WriteUserData(pdu.data, out);
  return out;
}

Octets EncodeStatusReport(const StatusReportPdu& pdu) {
  Octets out;
  out.reserve(kMostOctetsOfAPdu);
  WriteServiceCentre(pdu.service_centre, out);
  out.push_back(kStatusReport | kNoMoreMessages);
  out.push_back(pdu.message_reference);
  WriteAddress(pdu.recipient, out);
  WriteTimeStamp(pdu.time, out);
  WriteTimeStamp(pdu.discharge_time, out);
  out.push_back(pdu.status);
  return out;
}

Outcome OutcomeOf(std::uint8_t status) noexcept {
  if (status == 0) return Outcome::kDelivered;
  if (status < 0x20) return Outcome::kPassedOn;
  return status < 0x40 ? Outcome::kStillTrying : Outcome::kFailed;
}

std::optional<IncomingType> TypeOfIncoming(OctetSpan octets) noexcept {
  const std::size_t length = TpduLength(octets);
  if (length == 0) return std::nullopt;
  switch (octets[octets.size() - length] & kTypeMask) {
    case kDeliver: return IncomingType::kDeliver;
    case kStatusReport: return IncomingType::kStatusReport;
    default: return IncomingType::kReserved;
  }
}

std::uint8_t RelativeValidity(std::chrono::minutes time) noexcept {
  using std::chrono::ceil;
  using std::chrono::days;
  using std::chrono::hours;
  using std::chrono::weeks;
  using HalfHours = std::chrono::duration<std::int64_t, std::ratio<1800>>;
  using Steps = std::chrono::duration<std::int64_t, std::ratio<300>>;
  const auto octet = [](std::int64_t value) { return static_cast<std::uint8_t>(value); };
  if (time <= std::chrono::minutes(0)) return 0;
  if (time <= hours(12)) return octet(ceil<Steps>(time).count() - 1);
  if (time <= hours(24)) return octet(143 + ceil<HalfHours>(time - hours(12)).count());
  if (time <= days(30)) return octet(166 + ceil<days>(time).count());
  return octet(192 + std::min<std::int64_t>(ceil<weeks>(time).count(), 63));
}

std::size_t TpduLength(OctetSpan pdu) noexcept {
  if (pdu.empty()) return 0;
  const std::size_t address = std::size_t{pdu[0]} + 1;
  return address < pdu.size() ? pdu.size() - address : 0;
}

std::size_t DeliverSize(OctetSpan octets) noexcept {
  OctetReader in(octets);
  const std::size_t service_centre = in.Next();
  in.Take(service_centre);
  ReadFirstOctet(in, kDeliver);
  const std::size_t originator = (in.Next() + std::size_t{1}) / 2;  // from its semi-octets
  in.Take(1 + originator);                                          // with its type
  in.Next();                                                        // the protocol identifier
  const Alphabet alphabet = ReadDataCoding(in.Next()).alphabet;
  in.Take(kTimeStampOctets);
  const std::size_t length = in.Next();
  if (in.error() != PduError::kNone) return 0;
  const std::size_t data = alphabet == Alphabet::kDefault ? (length * 7 + 7) / 8 : length;
  return 1 + service_centre + 1 + 2 + originator + 2 + kTimeStampOctets + 1 + data;
}

}  // namespace gsm
