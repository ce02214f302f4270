// SPDX-License-Identifier: MIT
// Sending: announcement, message, confirmation (3GPP TS 27.005 clauses 3.5.1, 4.3).
#include <fmt/format.h>

#include <utility>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/commands.h"
#include "runtime/modem_simulator/readable.h"
#include "runtime/modem_simulator/sent_report.h"
#include "runtime/modem_simulator/text_mode.h"

namespace modem_simulator {
namespace {

constexpr int kShortestTpdu = 7;
constexpr int kLongestTpdu = 164;

Result AnnouncePdu(ModemState& modem, const AtCommand& command) {
  const auto length = command.Number(0, std::nullopt);
  if (!length || *length < kShortestTpdu || *length > kLongestTpdu) {
    return Cms(kInvalidPduParameter);
  }
  modem.announcement = {*length, {}};
  return {ResultKind::kPrompt};
}

Result AnnounceText(ModemState& modem, const AtCommand& command) {
  const std::string& number = command.parameters.front();
  if (!gsm::IsNumber(number)) return Cms(kInvalidTextParameter);
  modem.announcement = {0, number};
  return {ResultKind::kPrompt};
}

Result Send(ModemState& modem, const AtCommand& command, Answer&) {
  if (command.form == CommandForm::kTest) return kOk;
  if (command.form != CommandForm::kSet) return kError;
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  return modem.settings.text_mode ? AnnounceText(modem, command) : AnnouncePdu(modem, command);
}

Result TakePdu(ModemState& modem, std::string_view body) {
  std::string digits(body);
  std::erase(digits, '\r');
  const auto octets = gsm::FromHexadecimal(digits);
  if (!octets) {
    modem.host.Report("refused: the PDU is not hexadecimal");
    return Cms(kInvalidPduParameter);
  }
  const std::size_t length = gsm::TpduLength(*octets);
  if (length != static_cast<std::size_t>(modem.announcement.tpdu_length)) {
    modem.host.Report(fmt::format("refused: AT+CMGS announced {} octets, the PDU has {}",
                                  modem.announcement.tpdu_length, length));
    return Cms(kInvalidPduParameter);
  }
  gsm::SubmitPdu pdu;
  if (const gsm::PduResult result = gsm::DecodeSubmit(*octets, pdu); !result) {
    modem.host.Report(fmt::format("refused: the PDU is wrong at octet {}: {}", result.error_at,
                                  Describe(result.error)));
    return Cms(kInvalidPduParameter);
  }
  modem.outgoing = std::move(pdu);
  return {ResultKind::kAwaitNetwork};
}

Result TakeText(ModemState& modem, std::string_view body) {
  auto data = TextBody(body, modem.settings.character_set);
  if (!data) {
    modem.host.Report("refused: the text does not fit one message");
    return Cms(kInvalidTextParameter);
  }
  gsm::SubmitPdu pdu;
  pdu.destination = modem.announcement.destination;
  pdu.data = std::move(*data);
  modem.outgoing = std::move(pdu);
  return {ResultKind::kAwaitNetwork};
}

}  // namespace

Result TakeMessage(ModemState& modem, std::string_view body) {
  return modem.settings.text_mode ? TakeText(modem, body) : TakePdu(modem, body);
}

Result ConfirmMessage(ModemState& modem, Answer& answer) {
  const gsm::SubmitPdu pdu = *std::exchange(modem.outgoing, std::nullopt);
  auto failure = modem.faults.TakeFailure("CMGS");
  if (!failure && !modem.online()) failure = Cms(kNoNetworkService);
  if (failure) {
    modem.host.Report(fmt::format("refused: message to {}: {}", Escape(pdu.destination),
                                  DescribeResult(*failure, 1)));
    return modem.options.quirks.Has(Quirk::kOkOnFailure) ? kOk : *failure;
  }
  ++modem.message_reference;
  answer.push_back(fmt::format("{}{}", modem.Header("+CMGS"), modem.message_reference));
  ReportSent(modem, pdu);
  return kOk;
}

Handler FindSendingCommand(std::string_view name) {
  return name == "+CMGS" ? Send : nullptr;
}

}  // namespace modem_simulator
