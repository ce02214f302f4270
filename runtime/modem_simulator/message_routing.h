// SPDX-License-Identifier: MIT
// How AT+CNMI routes a message that arrives (3GPP TS 27.005 clause 3.4.1).
#pragma once

#include <cstdint>
#include <string>

#include "libs/gsm/octet_reader.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

enum class Route : std::uint8_t {
  kDiscard,
  kStore,
  kStoreAndTell,  ///< +CMTI, +CDSI
  kHandOn,        ///< +CMT, +CDS: the message is not stored
};

[[nodiscard]] Route RouteOf(gsm::OctetSpan pdu, const Indications& indications);

/// The line that announces a message in a place: `+CMTI: "SM",1`.
[[nodiscard]] std::string PlaceNews(const ModemState& modem, gsm::OctetSpan pdu, int place);

/// The lines that pass a message on: "+CMT: ,30" and the PDU, or the message as text mode shows it.
[[nodiscard]] std::string MessageNews(const ModemState& modem, const gsm::Octets& pdu);

}  // namespace modem_simulator
