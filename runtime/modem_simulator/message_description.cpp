// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_description.h"

#include <fmt/format.h>

#include <chrono>
#include <vector>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/readable.h"

namespace modem_simulator {
namespace {

std::string DescribeData(const gsm::UserData& data) {
  std::string text;
  if (const auto& place = data.header.concatenation) {
    text += fmt::format(", part {} of {}", place->sequence, place->total);
  }
  if (data.alphabet == gsm::Alphabet::kOctets) text += ", 8-bit data";
  return fmt::format("{}: {}", text, Escape(gsm::TextOf(data)));
}

}  // namespace

std::string DescribeMessage(gsm::OctetSpan octets) {
  if (octets.empty()) return "an empty PDU";
  gsm::DeliverPdu deliver;
  if (gsm::DecodeDeliver(octets, deliver)) {
    return fmt::format("from {} at {}{}", Escape(deliver.originator),
                       gsm::FormatTimeStamp(deliver.time), DescribeData(deliver.data));
  }
  gsm::SubmitPdu submit;
  if (gsm::DecodeSubmit(octets, submit)) {
    const std::string receiver = submit.destination.empty() ? "nobody" : Escape(submit.destination);
    return fmt::format("to {}{}", receiver, DescribeData(submit.data));
  }
  gsm::StatusReportPdu report;
  if (gsm::DecodeStatusReport(octets, report)) {
    return fmt::format("status report {} on message {} to {}", report.status,
                       report.message_reference, Escape(report.recipient));
  }
  return fmt::format("PDU {}", gsm::ToHexadecimal(octets));
}

std::string DescribeSent(const SentMessage& message) {
  std::string line = fmt::format("sent to {}", Escape(message.destination));
  if (message.parts < message.total) {
    line = fmt::format("unfinished to {}, {} of {} parts", Escape(message.destination),
                       message.parts, message.total);
  } else if (message.total > 1) {
    line += fmt::format(" in {} parts", message.total);
  }
  if (message.alphabet == gsm::Alphabet::kOctets) line += " as 8-bit data";
  if (message.header_ignored) line += " (header announced, but there is none)";
  return fmt::format("{}: {}", line, Escape(message.text));
}

namespace {

/// A relative validity period (3GPP TS 23.040 clause 9.2.3.12.1).
std::chrono::minutes RelativeValidityOf(std::uint8_t value) {
  using std::chrono::days;
  using std::chrono::minutes;
  if (value < 144) return minutes(5) * (value + 1);
  if (value < 168) return std::chrono::hours(12) + minutes(30) * (value - 143);
  if (value < 197) return days(value - 166);
  return std::chrono::weeks(value - 192);
}

/// "90 min", "24 h", "2 days".
std::string InWords(std::chrono::minutes time) {
  using std::chrono::days;
  using std::chrono::hours;
  if (time > hours(24) && time % days(1) == hours(0)) return fmt::format("{} days", time / days(1));
  if (time % hours(1) == hours(0)) return fmt::format("{} h", time / hours(1));
  return fmt::format("{} min", time.count());
}

std::string DescribeValidity(const gsm::Octets& period) {
  if (period.size() == 1) {
    return "valid for " + InWords(RelativeValidityOf(period.front()));
  }
  gsm::OctetReader in(period);
  const gsm::TimeStamp end = gsm::ReadTimeStamp(in);
  if (in.error() != gsm::PduError::kNone) return "valid for an enhanced period";
  return "valid until " + gsm::FormatTimeStamp(end);
}

/// What the message asks of the network and the receiver's telephone; empty: nothing special.
std::string DescribeOptions(const gsm::SubmitPdu& pdu) {
  std::vector<std::string> options;
  if (!pdu.validity_period.empty()) options.push_back(DescribeValidity(pdu.validity_period));
  if (const auto message_class = gsm::ReadDataCoding(pdu.data_coding_scheme).message_class) {
    options.push_back(fmt::format("class {}", *message_class));
  }
  if (pdu.status_report_requested) options.emplace_back("a report is asked for");
  return fmt::format("{}", fmt::join(options, ", "));
}

}  // namespace

void ReportSent(ModemState& modem, const gsm::SubmitPdu& pdu) {
  if (const auto& place = pdu.data.header.concatenation; place && place->total > 1) {
    modem.host.Report(
        fmt::format("part {} of {} to {}", place->sequence, place->total, Escape(pdu.destination)));
  }
  const auto message = modem.joiner.Add(pdu);
  if (!message) return;
  if (const std::string options = DescribeOptions(pdu); !options.empty()) {
    modem.host.Report(fmt::format("to {}: {}", Escape(pdu.destination), options));
  }
  modem.host.Report(DescribeSent(*message));
}

}  // namespace modem_simulator
