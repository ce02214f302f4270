// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/sent_report.h"

#include <fmt/format.h>

#include "runtime/modem_simulator/readable.h"

namespace modem_simulator {

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
