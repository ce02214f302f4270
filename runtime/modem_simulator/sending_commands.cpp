// SPDX-License-Identifier: MIT
// Sending and storing: announcement, message, confirmation (3GPP TS 27.005 clauses 3.5.1 to 3.5.3,
// 4.3, 4.4).
#include <fmt/format.h>

#include <utility>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/commands.h"
#include "runtime/modem_simulator/handlers.h"
#include "runtime/modem_simulator/message_description.h"
#include "runtime/modem_simulator/readable.h"
#include "runtime/modem_simulator/text_mode.h"

namespace modem_simulator {
namespace {

using Purpose = Announcement::Purpose;

constexpr int kShortestTpdu = 7;
constexpr int kLongestTpdu = 164;
constexpr Result kPrompt{ResultKind::kPrompt};

Result InvalidParameter(const ModemState& modem) {
  return Cms(modem.settings.text_mode ? kInvalidTextParameter : kInvalidPduParameter);
}

Result AnnouncePdu(ModemState& modem, const AtCommand& command, Purpose purpose) {
  const auto length = command.Number(0, std::nullopt);
  const auto status = command.Number(1, static_cast<int>(MessageStatus::kUnsent));
  const bool right = length && *length >= kShortestTpdu && *length <= kLongestTpdu && status &&
                     *status < static_cast<int>(MessageStatus::kAll);
  if (!right) return Cms(kInvalidPduParameter);
  modem.announcement = {purpose, *length, {}, static_cast<MessageStatus>(*status)};
  return kPrompt;
}

/// The status that AT+CMGW gives in text mode, in which only messages to be sent are written.
std::optional<MessageStatus> StatusGiven(const AtCommand& command) {
  if (command.parameters.size() < 3) return MessageStatus::kUnsent;
  for (const MessageStatus status : {MessageStatus::kUnsent, MessageStatus::kSent}) {
    if (command.parameters[2] == TextOf(status)) return status;
  }
  return std::nullopt;
}

Result AnnounceText(ModemState& modem, const AtCommand& command, Purpose purpose) {
  const bool without_number =
      purpose == Purpose::kStore && (command.parameters.empty() || command.parameters[0].empty());
  const auto number = without_number ? std::optional(gsm::Address())
                                     : NumberGiven(command, 0, modem.settings.character_set);
  const auto status = StatusGiven(command);
  if (!number || !status) return Cms(kInvalidTextParameter);
  modem.announcement = {purpose, 0, *number, *status};
  return kPrompt;
}

/// Prompts for a message, if the SIM card is ready.
Result Announce(ModemState& modem, const AtCommand& command, Purpose purpose) {
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  return modem.settings.text_mode ? AnnounceText(modem, command, purpose)
                                  : AnnouncePdu(modem, command, purpose);
}

/// The octets of the digits; nullopt, with a report, if they are not what was announced.
std::optional<gsm::Octets> TakeDigits(ModemState& modem, std::string_view body) {
  std::string digits(body);
  std::erase(digits, '\r');
  auto octets = gsm::FromHexadecimal(digits);
  if (!octets) {
    modem.host.Report("refused: the PDU is not hexadecimal");
    return std::nullopt;
  }
  const Announcement& announced = modem.announcement;
  const bool bare = announced.purpose == Purpose::kAcknowledge;  // without a service centre
  const std::size_t length = bare ? octets->size() : gsm::TpduLength(*octets);
  if (length != static_cast<std::size_t>(announced.tpdu_length)) {
    modem.host.Report(fmt::format("refused: {} announced {} octets, the PDU has {}",
                                  announced.CommandName(), announced.tpdu_length, length));
    return std::nullopt;
  }
  return octets;
}

/// Whether a PDU is a message from the modem, or for it; reports what is wrong.
bool CheckPdu(ModemState& modem, gsm::OctetSpan octets, MessageStatus status) {
  gsm::SubmitPdu submit;
  gsm::DeliverPdu deliver;
  const bool sent = status == MessageStatus::kUnsent || status == MessageStatus::kSent;
  const gsm::PduResult result =
      sent ? gsm::DecodeSubmit(octets, submit) : gsm::DecodeDeliver(octets, deliver);
  if (!result) {
    modem.host.Report(fmt::format("refused: the PDU is wrong at octet {}: {}", result.error_at,
                                  Describe(result.error)));
  }
  return static_cast<bool>(result);
}

Result Store(ModemState& modem, gsm::Octets octets, Answer& answer) {
  if (const auto failure = modem.faults.TakeFailure("CMGW")) return *failure;
  const std::string description = DescribeMessage(octets);
  const auto place = modem.store.Add(modem.announcement.status, std::move(octets));
  if (!place) return Cms(kMemoryFull);
  modem.host.Report(fmt::format("written, place {}: {}", *place, description));
  answer.push_back(fmt::format("{}{}", modem.Header("+CMGW"), *place));
  return kOk;
}

Result Await(ModemState& modem, gsm::SubmitPdu pdu, std::string_view command, int place = 0) {
  modem.outgoing = {std::move(pdu), command, place};
  return {ResultKind::kAwaitNetwork};
}

std::optional<gsm::Octets> TakeBody(ModemState& modem, std::string_view body) {
  if (!modem.settings.text_mode) return TakeDigits(modem, body);
  auto octets = SubmitOctets(modem.announcement.destination, body, modem.settings);
  if (!octets) {
    modem.host.Report(
        "refused: the text does not fit into one message, or is not written in its character set");
  }
  return octets;
}

/// Why the network refuses the message; nullopt if it accepts it.
std::optional<Result> Failure(ModemState& modem, std::string_view command) {
  if (const auto ordered = modem.faults.TakeFailure(command.substr(1))) return ordered;
  if (!modem.online()) return Cms(kNoNetworkService);
  return std::nullopt;
}

/// The report that the sender asked for.
void PlanStatusReport(ModemState& modem, const gsm::SubmitPdu& pdu) {
  const auto [status, delay] = modem.report_plan;
  if (!pdu.status_report_requested || !status) return;
  const gsm::TimeStamp now = modem.host.Now();
  modem.pending_reports.push_back(
      {{modem.service_centre, modem.message_reference, pdu.destination, now, now, *status}, delay});
}

}  // namespace

Result Send(ModemState& modem, const AtCommand& command, Answer&) {
  if (command.form == CommandForm::kTest) return kOk;
  if (command.form != CommandForm::kSet) return kError;
  return Announce(modem, command, Purpose::kSend);
}

Result Write(ModemState& modem, const AtCommand& command, Answer&) {
  if (command.form == CommandForm::kTest) return kOk;
  if (command.form == CommandForm::kRead) return kError;
  return Announce(modem, command, Purpose::kStore);
}

Result SendStored(ModemState& modem, const AtCommand& command, Answer&) {
  if (command.form == CommandForm::kTest) return kOk;
  if (command.form != CommandForm::kSet) return kError;
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  const auto place = command.Number(0, std::nullopt);
  const StoredMessage* message = place ? modem.store.Find(*place) : nullptr;
  if (message == nullptr) return Cms(kInvalidIndex);
  gsm::SubmitPdu pdu;
  if (!gsm::DecodeSubmit(message->pdu, pdu)) return Cms(kOperationNotAllowed);
  if (command.parameters.size() > 1) {
    const auto number = NumberGiven(command, 1, modem.settings.character_set);
    if (!number) return InvalidParameter(modem);
    pdu.destination = *number;
  }
  if (pdu.destination.empty()) return InvalidParameter(modem);
  return Await(modem, std::move(pdu), "+CMSS", *place);
}

Result TakeMessage(ModemState& modem, std::string_view body, Answer& answer) {
  if (modem.announcement.purpose == Purpose::kAcknowledge) {
    if (!TakeDigits(modem, body)) return Cms(kInvalidPduParameter);
    modem.acknowledgement_due = false;
    return kOk;
  }
  auto octets = TakeBody(modem, body);
  if (!octets) return InvalidParameter(modem);
  const bool stored = modem.announcement.purpose == Purpose::kStore;
  const MessageStatus status = stored ? modem.announcement.status : MessageStatus::kUnsent;
  if (!CheckPdu(modem, *octets, status)) return InvalidParameter(modem);
  if (stored) return Store(modem, std::move(*octets), answer);
  gsm::SubmitPdu pdu;
  static_cast<void>(gsm::DecodeSubmit(*octets, pdu));  // CheckPdu has seen that it can be decoded
  return Await(modem, std::move(pdu), "+CMGS");
}

Result ConfirmMessage(ModemState& modem, Answer& answer) {
  const Outgoing outgoing = *std::exchange(modem.outgoing, std::nullopt);
  if (const auto failure = Failure(modem, outgoing.command)) {
    modem.host.Report(fmt::format("refused: message to {}: {}", Escape(outgoing.pdu.destination),
                                  DescribeResult(*failure, 1)));
    return modem.options.quirks.Has(Quirk::kOkOnFailure) ? kOk : *failure;
  }
  ++modem.message_reference;
  answer.push_back(fmt::format("{}{}", modem.Header(outgoing.command), modem.message_reference));
  StoredMessage* stored = modem.store.Find(outgoing.place);
  if (outgoing.command == "+CMSS" && stored != nullptr) stored->status = MessageStatus::kSent;
  ReportSent(modem, outgoing.pdu);
  PlanStatusReport(modem, outgoing.pdu);
  return kOk;
}

}  // namespace modem_simulator
