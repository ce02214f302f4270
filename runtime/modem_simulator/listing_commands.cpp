// SPDX-License-Identifier: MIT
// Listing, reading and deleting (3GPP TS 27.005 clauses 3.4.2, 3.4.3, 3.5.4, 4.1, 4.2).
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/commands.h"
#include "runtime/modem_simulator/handlers.h"
#include "runtime/modem_simulator/text_mode.h"

namespace modem_simulator {
namespace {

constexpr std::size_t kSimRecord = 176;  // octets of a message that a SIM card stores

std::string PduLine(ModemState& modem, const gsm::Octets& pdu) {
  std::string line = gsm::ToHexadecimal(pdu);
  if (modem.options.quirks.Has(Quirk::kFilledPdu) && pdu.size() < kSimRecord) {
    line.append(2 * (kSimRecord - pdu.size()), 'F');
  }
  if (line.empty()) return line;
  if (const auto torn_by = modem.faults.TakeInterruption()) {
    line.insert(line.size() / 2, "\r\n" + *torn_by + "\r\n");
  }
  return line;
}

/// "<stat>,[<alpha>],<length>" and the PDU on the next line.
std::string PduEntry(ModemState& modem, const StoredMessage& message) {
  const Quirks& quirks = modem.options.quirks;
  std::string_view alpha = ",";
  if (quirks.Has(Quirk::kAlphaField)) alpha = "\"\",";
  if (quirks.Has(Quirk::kNoAlphaField)) alpha = "";
  return fmt::format("{},{}{}\r\n{}", static_cast<int>(message.status), alpha,
                     gsm::TpduLength(message.pdu), PduLine(modem, message.pdu));
}

std::string Entry(ModemState& modem, const StoredMessage& message, Shown shown) {
  return modem.settings.text_mode ? TextEntry(message, shown, modem.settings)
                                  : PduEntry(modem, message);
}

/// A number in PDU mode, words in text mode; nullopt if it is neither.
std::optional<MessageStatus> StatusFilter(const ModemState& modem, const AtCommand& command) {
  constexpr std::array kAll{MessageStatus::kUnread, MessageStatus::kRead, MessageStatus::kUnsent,
                            MessageStatus::kSent, MessageStatus::kAll};
  if (!modem.settings.text_mode) {
    const auto number = command.Number(0, 0);
    if (!number || static_cast<std::size_t>(*number) >= kAll.size()) return std::nullopt;
    return kAll[static_cast<std::size_t>(*number)];
  }
  if (command.parameters.empty()) return MessageStatus::kUnread;
  const auto found = std::find_if(kAll.begin(), kAll.end(), [&](MessageStatus status) {
    return TextOf(status) == command.parameters.front();
  });
  return found == kAll.end() ? std::nullopt : std::optional(*found);
}

/// A message that was listed is no longer unread.
void MarkRead(StoredMessage& message) {
  if (message.status == MessageStatus::kUnread) message.status = MessageStatus::kRead;
}

/// The index in a command, if it is a place of the store.
std::optional<int> Place(const ModemState& modem, const AtCommand& command) {
  const auto index = command.Number(0, std::nullopt);
  return index && modem.store.IsPlace(*index) ? index : std::nullopt;
}

/// AT+CMGD's <delflag> 1..4: read; and sent; and unsent; and unread.
bool DeletedBy(int flag, MessageStatus status) {
  switch (status) {
    case MessageStatus::kRead: return flag >= 1;
    case MessageStatus::kSent: return flag >= 2;
    case MessageStatus::kUnsent: return flag >= 3;
    case MessageStatus::kUnread: return flag >= 4;
    case MessageStatus::kAll: return false;
  }
  return false;
}

void DeleteMany(ModemState& modem, int flag) {
  const std::size_t count = std::erase_if(modem.store.messages(), [flag](const auto& entry) {
    return DeletedBy(flag, entry.second.status);
  });
  modem.host.Report(fmt::format("deleted {} messages", count));
}

Result DeleteOne(ModemState& modem, const AtCommand& command) {
  const auto index = Place(modem, command);
  if (!index) return Cms(kInvalidIndex);
  if (modem.store.Erase(*index)) {
    modem.host.Report(fmt::format("deleted place {}", *index));
    return kOk;
  }
  return modem.options.quirks.Has(Quirk::kDeleteEmptyOk) ? kOk : Cms(kInvalidIndex);
}

}  // namespace

Result List(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.emplace_back(modem.settings.text_mode
                            ? "+CMGL: (\"REC UNREAD\",\"REC READ\",\"STO UNSENT\",\"STO SENT\","
                              "\"ALL\")"
                            : "+CMGL: (0-4)");
    return kOk;
  }
  const auto filter = StatusFilter(modem, command);
  if (!filter) {
    return Cms(modem.settings.text_mode ? kInvalidTextParameter : kInvalidPduParameter);
  }
  if (const Result check = CheckTransfer(modem, command); check != kOk) return check;
  std::vector<std::string> entries;
  for (auto& [index, message] : modem.store.messages()) {
    if (*filter != MessageStatus::kAll && *filter != message.status) continue;
    entries.push_back(fmt::format("{}{},{}", modem.Header(command.name), index,
                                  Entry(modem, message, Shown::kListed)));
    MarkRead(message);
  }
  if (modem.options.quirks.Has(Quirk::kNewestFirst)) std::reverse(entries.begin(), entries.end());
  if (!entries.empty()) answer.push_back(fmt::format("{}", fmt::join(entries, "\r\n")));
  return kOk;
}

Result Read(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) return kOk;
  if (const Result check = CheckTransfer(modem, command); check != kOk) return check;
  const auto index = Place(modem, command);
  if (!index) return Cms(kInvalidIndex);
  StoredMessage* message = modem.store.Find(*index);
  if (message == nullptr) return kOk;  // an empty place: no text, and no error
  answer.push_back(modem.Header(command.name) + Entry(modem, *message, Shown::kRead));
  MarkRead(*message);
  return kOk;
}

Result Delete(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.push_back(fmt::format("+CMGD: ({}-{}),(0-4)", modem.store.first_index(),
                                 modem.store.first_index() + modem.store.size() - 1));
    return kOk;
  }
  if (const Result check = CheckTransfer(modem, command); check != kOk) return check;
  const auto flag = command.Number(1, 0);
  if (!flag || *flag > 4) return Cms(kInvalidPduParameter);
  if (*flag == 0) return DeleteOne(modem, command);
  DeleteMany(modem, *flag);
  return kOk;
}

}  // namespace modem_simulator
