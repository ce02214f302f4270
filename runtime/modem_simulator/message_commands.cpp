// SPDX-License-Identifier: MIT
// How messages are kept, shown and announced (3GPP TS 27.005 clauses 3.1 to 3.4).
#include <fmt/format.h>

#include <array>

#include "runtime/modem_simulator/commands.h"
#include "runtime/modem_simulator/handlers.h"
#include "runtime/modem_simulator/numeric_parameters.h"
#include "runtime/modem_simulator/text_mode.h"

namespace modem_simulator {
namespace {

constexpr int kSubmitType = 0x01;  // the lowest two bits of the first octet

/// A number from 0 to 255; the former value if it is left out.
bool TakeOctet(const AtCommand& command, std::size_t index, int& value) {
  const auto given = command.Number(index, value);
  if (!given || *given > 0xFF) return false;
  value = *given;
  return true;
}

bool TakeValidity(const AtCommand& command, TextParameters& wanted) {
  if (wanted.validity_format() == TextParameters::kEnhanced) return false;
  if (wanted.validity_format() != TextParameters::kAbsolute) {
    return TakeOctet(command, 1, wanted.validity_period);
  }
  if (command.parameters.size() > 1 && !command.parameters[1].empty()) {
    wanted.valid_until = ParseModemTime(command.parameters[1]);
  }
  return wanted.valid_until.has_value();
}

void ShowParameters(const TextParameters& parameters, Answer& answer) {
  std::string validity = fmt::format("{}", parameters.validity_period);
  if (parameters.validity_format() == TextParameters::kAbsolute) {
    validity = fmt::format("\"{}\"", FormatModemTime(*parameters.valid_until));
  }
  answer.push_back(fmt::format("+CSMP: {},{},{},{}", parameters.first_octet, validity,
                               parameters.protocol_identifier, parameters.data_coding_scheme));
}

}  // namespace

Result MessageFormat(ModemState& modem, const AtCommand& command, Answer& answer) {
  int text_mode = modem.settings.text_mode ? 1 : 0;
  const Result result = NumericParameter(command, "0,1", text_mode, kError, answer);
  modem.settings.text_mode = text_mode == 1;
  return result;
}

/// AT+CPMS: the SIM card's memory is the only one, for all three uses.
Result Storage(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.emplace_back("+CPMS: (\"SM\"),(\"SM\"),(\"SM\")");
    return kOk;
  }
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  const std::string use = fmt::format("{},{}", modem.store.used(), modem.store.size());
  if (command.form == CommandForm::kRead) {
    answer.push_back(fmt::format("+CPMS: \"SM\",{0},\"SM\",{0},\"SM\",{0}", use));
    return kOk;
  }
  for (const std::string& memory : command.parameters) {
    if (memory != "SM") return Cms(kOperationNotAllowed);
  }
  answer.push_back(fmt::format("+CPMS: {0},{0},{0}", use));
  return kOk;
}

Result ServiceCentre(ModemState& modem, const AtCommand& command, Answer& answer) {
  const CharacterSet set = modem.settings.character_set;
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("+CSCA: \"{}\",{}", ToLine(modem.service_centre, set),
                                   gsm::TypeOfAddress(modem.service_centre)));
      return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  const auto number = NumberGiven(command, 0, set);
  if (!number) return Cms(kInvalidTextParameter);
  modem.service_centre = *number;
  return kOk;
}

Result MessageService(ModemState& modem, const AtCommand& command, Answer& answer) {
  constexpr std::string_view kTypes = "1,1,0";  // to the modem, from it, but no broadcasts
  int& service = modem.settings.message_service;
  if (command.form == CommandForm::kRead) {
    answer.push_back(fmt::format("+CSMS: {},{}", service, kTypes));
    return kOk;
  }
  const Result result =
      NumericParameter(command, "0,1", service, Cms(kOperationNotAllowed), answer);
  if (result == kOk && command.form != CommandForm::kTest) {
    answer.push_back(fmt::format("+CSMS: {}", kTypes));
  }
  return result;
}

Result NewMessageIndications(ModemState& modem, const AtCommand& command, Answer& answer) {
  constexpr std::array<std::string_view, Indications::kFields> kOffered{"0-3", "0-3", "0-3", "0-2",
                                                                        "0,1"};
  return NumericParameters(command, kOffered, modem.settings.indications.values,
                           Cms(kOperationNotAllowed), answer);
}

/// AT+CNMA, in PDU mode also with <n> and the length of an acknowledgement PDU that follows.
Result Acknowledge(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kRead) return kError;
  if (command.form == CommandForm::kTest) {
    if (!modem.settings.text_mode) answer.emplace_back("+CNMA: (0-2)");
    return kOk;
  }
  const auto how = command.Number(0, 0);
  if (!how || !Offers(modem.settings.text_mode ? "0" : "0-2", *how)) {
    return Cms(modem.settings.text_mode ? kInvalidTextParameter : kInvalidPduParameter);
  }
  if (!modem.acknowledgement_due) return Cms(kNoAcknowledgementExpected);
  const auto length = command.Number(1, 0);
  if (!length || *length > 0xFF) return Cms(kInvalidPduParameter);
  if (*length > 0) {
    modem.announcement = {Announcement::Purpose::kAcknowledge, *length, {}, {}};
    return {ResultKind::kPrompt};
  }
  if (*how == 2) modem.host.Report("refused by the controller");
  modem.acknowledgement_due = false;
  return kOk;
}

Result TextModeParameters(ModemState& modem, const AtCommand& command, Answer& answer) {
  TextParameters& parameters = modem.settings.text_parameters;
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead: ShowParameters(parameters, answer); return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  TextParameters wanted = parameters;
  const bool right = command.parameters.size() <= 4 && TakeOctet(command, 0, wanted.first_octet) &&
                     (wanted.first_octet & 0x03) == kSubmitType && TakeValidity(command, wanted) &&
                     TakeOctet(command, 2, wanted.protocol_identifier) &&
                     TakeOctet(command, 3, wanted.data_coding_scheme);
  if (!right) return Cms(kInvalidTextParameter);
  parameters = wanted;
  return kOk;
}

Result ShowTextModeParameters(ModemState& modem, const AtCommand& command, Answer& answer) {
  return NumericParameter(command, "0,1", modem.settings.show_text_parameters, kError, answer);
}

}  // namespace modem_simulator
