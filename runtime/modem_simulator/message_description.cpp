// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_description.h"

#include <fmt/format.h>

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

void ReportSent(ModemState& modem, const gsm::SubmitPdu& pdu) {
  if (const auto& place = pdu.data.header.concatenation; place && place->total > 1) {
    modem.host.Report(
        fmt::format("part {} of {} to {}", place->sequence, place->total, Escape(pdu.destination)));
  }
  if (const auto message = modem.joiner.Add(pdu)) modem.host.Report(DescribeSent(*message));
}

}  // namespace modem_simulator
