// SPDX-License-Identifier: MIT
#include "runtime/cli/standard_reading.h"

#include <fmt/format.h>

#include <chrono>

#include "libs/base/printable.h"
#include "libs/gsm/pdu.h"
#include "share/date_time.h"

namespace corvane::cli {
namespace {

constexpr std::uint8_t kTypeMask = 0x03;
constexpr std::uint8_t kHeaderIndicator = 0x40;
constexpr const char* kReserved = "reserved";

/// The fields up to the sender's address, which READ_SMS treats by their numbers.
struct Beginning {
  explicit Beginning(gsm::OctetSpan pdu) {
    gsm::OctetReader in(pdu);
    in.Take(in.Next());
    first_octet = in.Next();
    digits = in.Next();
    type = in.Next();
    complete = in.error() == gsm::PduError::kNone;
  }
  bool complete;
  unsigned first_octet;
  unsigned digits;  // semi-octets of the address
  unsigned type;    // of the address
};

std::string ProblemOf(const gsm::PduResult& result) {
  return fmt::format("{} (octet {})", gsm::Describe(result.error), result.error_at + 1);
}

/// Octets after the text do not affect what the standard reads.
bool IsReadable(const gsm::PduResult& result) {
  return result || result.error == gsm::PduError::kTrailing;
}

StandardReading ReadDeliver(gsm::OctetSpan octets) {
  gsm::DeliverPdu pdu;
  const auto result = gsm::DecodeDeliver(octets, pdu);
  if (!IsReadable(result)) return {.kind = "message", .problem = ProblemOf(result)};
  return {.kind = "message",
          .number = pdu.originator,
          .time = gsm::FormatTimeStamp(pdu.time),
          .part = pdu.data.header.concatenation,
          .text = gsm::TextOf(pdu.data)};
}

StandardReading ReadReport(gsm::OctetSpan octets) {
  gsm::StatusReportPdu pdu;
  const auto result = gsm::DecodeStatusReport(octets, pdu);
  if (!result) return {.kind = "status report", .problem = ProblemOf(result)};
  return {.kind = "status report",
          .number = pdu.recipient,
          .time = gsm::FormatTimeStamp(pdu.discharge_time),
          .text = fmt::format("status 0x{:02X} of message reference {}", pdu.status,
                              pdu.message_reference)};
}

StandardReading ReadSubmit(gsm::OctetSpan octets) {
  gsm::SubmitPdu pdu;
  const auto result = gsm::DecodeSubmit(octets, pdu);
  if (!IsReadable(result)) return {.kind = "message to the network", .problem = ProblemOf(result)};
  return {.kind = "message to the network",
          .number = pdu.destination,
          .part = pdu.data.header.concatenation,
          .text = gsm::TextOf(pdu.data)};
}

std::string ShownPart(const gsm::Concatenation& part) {
  return fmt::format("{} of {}, reference {}", part.sequence, part.total, part.reference);
}

bool SamePart(const sms::SMSDelivered& block, const StandardReading& standard) {
  if (!standard.part) return block.total == 0 && block.seq == 0;
  return block.seq == standard.part->sequence && block.total == standard.part->total &&
         block.ref == standard.part->reference;
}

bool SameTime(const sms::SMSDelivered& block, const StandardReading& standard) {
  const std::string time = IsoTime(block.time).value_or("");
  return time.substr(0, time.size() - 1) + "+00:00" == standard.time;
}

void AddAddressCause(const Beginning& pdu, std::vector<std::string>& causes) {
  constexpr unsigned kInternational = 0x91;
  constexpr unsigned kUnknown = 0x81;
  constexpr unsigned kName = 0xD0;
  const bool even = pdu.digits % 2 == 0;
  if (pdu.type == kInternational && even) {
    causes.push_back(
        fmt::format("The sender's number has an even number of digits, {}: READ_SMS reads on into "
                    "the fields after it.",
                    pdu.digits));
  } else if (pdu.type == kUnknown && !even) {
    causes.push_back(
        fmt::format("The sender's number is not an international one and has an odd number of "
                    "digits, {}: READ_SMS reads its last octet as part of the fields after it.",
                    pdu.digits));
  } else if (pdu.type == kName && pdu.digits * 4 / 7 > (pdu.digits + 1) / 2) {
    causes.emplace_back(
        "The sender is a name of more than seven characters: READ_SMS counts each as an octet.");
  } else if (pdu.type != kInternational && pdu.type != kUnknown && pdu.type != kName) {
    causes.push_back(fmt::format(
        "The type of the sender's number is 0x{:02X}: READ_SMS knows 0x91, 0x81 and 0xD0.",
        pdu.type));
  }
}

/// Whether the header has only the element of a part with a reference of one octet (six octets with
/// its length), as READ_SMS assumes of every header.
bool IsPlainPart(const gsm::UserDataHeader& header) {
  return header.concatenation && !header.concatenation->wide &&
         gsm::WriteHeader(header).size() == 6;
}

void AddTextCauses(const Beginning& beginning, const gsm::DeliverPdu& pdu,
                   std::vector<std::string>& causes) {
  const bool has_header = (beginning.first_octet & kHeaderIndicator) != 0;
  if (has_header && !IsPlainPart(pdu.data.header)) {
    causes.emplace_back(
        "Its user-data header is not just that of a part with a reference of one octet: READ_SMS "
        "reads every header as one.");
    return;
  }
  const std::uint8_t coding = pdu.data_coding_scheme;
  if (coding == 0x00 && has_header) {
    causes.emplace_back(
        "A 7-bit text follows a header: READ_SMS does not skip the bits between the two.");
  } else if (coding == 0x00) {
    causes.emplace_back(
        "It is in the GSM alphabet: READ_SMS takes its codes for ASCII, so @ $ _ and letters with "
        "accents become other characters, and seven fill bits at the end become a NUL.");
  } else if (coding == 0x08) {
    causes.emplace_back("READ_SMS leaves out characters above U+FFFF, and reads to the PDU's end.");
  } else {
    causes.push_back(fmt::format(
        "Its data coding scheme is 0x{:02X}: READ_SMS reads texts only of 0x00 and 0x08.", coding));
  }
}

}  // namespace

std::optional<std::string> IsoTime(std::int64_t file_time) {
  using namespace std::chrono;
  if (file_time == 0) return std::nullopt;
  const sys_seconds time{seconds{file_time / kTicksPerSecond - kUnixEpochSeconds}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

StandardReading ReadByStandard(gsm::OctetSpan pdu) {
  switch (Beginning(pdu).first_octet & kTypeMask) {
    case 0x00: return ReadDeliver(pdu);
    case 0x01: return ReadSubmit(pdu);
    case 0x02: return ReadReport(pdu);
    default: return {.kind = kReserved, .problem = "its message type is reserved"};
  }
}

std::vector<std::string> Differences(const sms::SMSDelivered& block,
                                     const StandardReading& standard) {
  const bool all = block.status != 0 || standard.kind != "message";
  std::vector<std::string> lines;
  if (!standard.problem.empty()) return lines;
  const auto add = [&](bool same, const char* name, const std::string& value) {
    if (!value.empty() && (all || !same)) {
      lines.push_back(fmt::format("{:<8}{}", name, Printable(value)));
    }
  };
  const std::string part = standard.part ? ShownPart(*standard.part) : all ? "" : "none";
  add(block.number == standard.number, "number", standard.number);
  add(SameTime(block, standard), "time", standard.time);
  add(SamePart(block, standard), "part", part);
  add(block.text == standard.text, "text", standard.text);
  return lines;
}

std::vector<std::string> Causes(gsm::OctetSpan octets) {
  std::vector<std::string> causes;
  const Beginning beginning(octets);
  gsm::DeliverPdu pdu;
  const auto result = gsm::DecodeDeliver(octets, pdu);
  if (result.error == gsm::PduError::kBadType && beginning.complete) {
    const std::string kind = ReadByStandard(octets).kind;
    if (kind != kReserved) causes.push_back(fmt::format("It is a {}.", kind));
    return causes;
  }
  if (!IsReadable(result)) return causes;
  sms::SMSDelivered block(0);
  block.decode({octets.begin(), octets.end()});
  const StandardReading standard = ReadByStandard(octets);
  AddAddressCause(beginning, causes);
  if (!causes.empty()) return causes;  // the rest follows from it
  if (pdu.protocol_identifier != 0) {
    causes.push_back(fmt::format("Its protocol identifier is 0x{:02X}: READ_SMS accepts only 0x00.",
                                 pdu.protocol_identifier));
  }
  if (block.status != 0) return causes;
  if (pdu.time.utc_offset_minutes != 0) {
    causes.emplace_back("READ_SMS leaves out the time zone.");
  } else if (!SameTime(block, standard)) {
    causes.emplace_back("Its time stamp is not a time that exists.");
  }
  if (block.text == standard.text && SamePart(block, standard)) return causes;
  if (!result) {
    causes.push_back(fmt::format("Its text ends before octet {}: READ_SMS takes the rest for text.",
                                 result.error_at + 1));
  } else {
    AddTextCauses(beginning, pdu, causes);
  }
  return causes;
}

}  // namespace corvane::cli
