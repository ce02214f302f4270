// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/incoming_pdu.h"

#include <algorithm>
#include <vector>

#include "libs/gsm/hexadecimal.h"

namespace corvane_sms {
namespace {

constexpr std::uint8_t kTypeMask = 0x03;
constexpr std::uint8_t kSubmit = 0x01;
constexpr std::uint8_t kReserved = 0x03;

/// The octet that holds the message type; null if the octets end before it.
std::uint8_t* FirstOctet(gsm::Octets& octets) {
  const std::size_t length = gsm::TpduLength(octets);
  return length == 0 ? nullptr : &octets[octets.size() - length];
}

/// The SMS-DELIVER in `octets`. A reserved message type counts as one, as clause 9.2.3.1 requires.
std::optional<gsm::DeliverPdu> ReadDeliver(gsm::Octets octets) {
  std::uint8_t* const first = FirstOctet(octets);
  if (first == nullptr) return std::nullopt;
  if ((*first & kTypeMask) == kReserved) *first &= static_cast<std::uint8_t>(~kTypeMask);
  gsm::DeliverPdu pdu;
  if (!gsm::DecodeDeliver(octets, pdu).whole) return std::nullopt;
  return pdu;
}

std::optional<gsm::DeliverPdu> ReadDeliver(std::string_view hexadecimal) {
  auto octets = gsm::FromHexadecimal(hexadecimal);
  return octets ? ReadDeliver(std::move(*octets)) : std::nullopt;
}

std::optional<gsm::StatusReportPdu> ReadReport(const gsm::Octets& octets) {
  gsm::StatusReportPdu report;
  if (gsm::TypeOfIncoming(octets) != gsm::IncomingType::kStatusReport) return std::nullopt;
  if (!gsm::DecodeStatusReport(octets, report).whole) return std::nullopt;
  return report;
}

std::optional<std::chrono::sys_seconds> TimeOf(const gsm::TimeStamp& stamp) {
  if (!gsm::IsValid(stamp)) return std::nullopt;
  return gsm::ToTime(stamp);
}

bool IsBinary(const gsm::UserData& data) {
  return data.alphabet == gsm::Alphabet::kOctets;
}

IncomingPdu FromDeliver(const gsm::DeliverPdu& pdu) {
  IncomingPdu incoming;
  incoming.sender = pdu.originator;
  incoming.time = TimeOf(pdu.time);
  incoming.kind = IsBinary(pdu.data) ? IncomingKind::kBinary : IncomingKind::kText;
  if (pdu.data.header.concatenation) {
    incoming.type = IncomingPdu::Type::kPart;
    incoming.place = *pdu.data.header.concatenation;
  } else {
    incoming.text = gsm::TextOf(pdu.data);
  }
  return incoming;
}

/// What is not even hexadecimal may be anything; in a text it must be readable.
IncomingPdu Undecoded(std::string_view hexadecimal) {
  IncomingPdu incoming;
  incoming.kind = IncomingKind::kUndecoded;
  incoming.text = hexadecimal;
  std::ranges::replace_if(
      incoming.text, [](char octet) { return octet < ' ' || octet > '~'; }, '?');
  return incoming;
}

}  // namespace

IncomingPdu ReadIncoming(std::string_view hexadecimal) {
  const auto octets = gsm::FromHexadecimal(hexadecimal);
  if (!octets) return Undecoded(hexadecimal);
  if (const auto report = ReadReport(*octets)) {
    IncomingPdu incoming;
    incoming.type = IncomingPdu::Type::kReport;
    incoming.sender = report->recipient;
    incoming.time = TimeOf(report->time);
    incoming.report = *report;
    return incoming;
  }
  const auto deliver = ReadDeliver(*octets);
  return deliver ? FromDeliver(*deliver) : Undecoded(hexadecimal);
}

bool IsOutgoing(std::string_view hexadecimal) {
  auto octets = gsm::FromHexadecimal(hexadecimal);
  const std::uint8_t* const first = octets ? FirstOctet(*octets) : nullptr;
  return first != nullptr && (*first & kTypeMask) == kSubmit;
}

messages::PartsText ReadParts(std::span<const messages::Part> parts) {
  std::vector<gsm::UserData> data;
  for (const messages::Part& part : parts) {
    if (auto deliver = ReadDeliver(part.pdu)) data.push_back(std::move(deliver->data));
  }
  return {gsm::TextOf(data), !data.empty() && std::ranges::all_of(data, IsBinary)};
}

bool HaveSameContent(const messages::Part& one, const messages::Part& other) {
  const auto first = ReadDeliver(one.pdu);
  const auto second = ReadDeliver(other.pdu);
  return first && second && first->data.alphabet == second->data.alphabet &&
         first->data.header == second->data.header && first->data.payload == second->data.payload;
}

}  // namespace corvane_sms
