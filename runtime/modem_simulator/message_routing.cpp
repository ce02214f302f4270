// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_routing.h"

#include <fmt/format.h>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/text_mode.h"

namespace modem_simulator {
namespace {

constexpr int kOfTheSim = 2;  // message classes
constexpr int kOfTheController = 3;

/// A PDU that cannot be decoded is treated like any message.
bool IsStatusReport(gsm::OctetSpan pdu) {
  gsm::StatusReportPdu report;
  return static_cast<bool>(gsm::DecodeStatusReport(pdu, report));
}

std::optional<std::uint8_t> ClassOf(gsm::OctetSpan pdu) {
  gsm::DeliverPdu deliver;
  if (!gsm::DecodeDeliver(pdu, deliver)) return std::nullopt;
  return gsm::ReadDataCoding(deliver.data_coding_scheme).message_class;
}

Route StatusReportRoute(int value) {
  switch (value) {
    case 1: return Route::kHandOn;
    case 2: return Route::kStoreAndTell;
    default: return Route::kDiscard;
  }
}

Route DeliverRoute(int value, std::optional<std::uint8_t> message_class) {
  switch (value) {
    case 0: return Route::kStore;
    case 2: return message_class == kOfTheSim ? Route::kStoreAndTell : Route::kHandOn;
    case 3: return message_class == kOfTheController ? Route::kHandOn : Route::kStoreAndTell;
    default: return Route::kStoreAndTell;
  }
}

}  // namespace

Route RouteOf(gsm::OctetSpan pdu, const Indications& indications) {
  const auto& values = indications.values;
  if (IsStatusReport(pdu)) return StatusReportRoute(values[Indications::kReport]);
  return DeliverRoute(values[Indications::kDeliver], ClassOf(pdu));
}

std::string PlaceNews(const ModemState& modem, gsm::OctetSpan pdu, int place) {
  return fmt::format("{}\"SM\",{}", modem.Header(IsStatusReport(pdu) ? "+CDSI" : "+CMTI"), place);
}

std::string MessageNews(const ModemState& modem, const gsm::Octets& pdu) {
  const bool report = IsStatusReport(pdu);
  const std::string header = modem.Header(report ? "+CDS" : "+CMT");
  if (modem.settings.text_mode) {
    return header + TextEntry({MessageStatus::kUnread, pdu}, Shown::kArriving, modem.settings);
  }
  return fmt::format("{}{}{}\r\n{}", header, report ? "" : ",", gsm::TpduLength(pdu),
                     gsm::ToHexadecimal(pdu));
}

}  // namespace modem_simulator
