// SPDX-License-Identifier: MIT
// Where the modem is registered, as AT+CREG and AT+CGREG show it and as it is announced (3GPP TS
// 27.007 clauses 7.2, 10.1.20).
#pragma once

#include <string>

#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

enum class Domain : std::uint8_t {
  kCircuit,  ///< calls and messages: +CREG
  kPacket,   ///< data: +CGREG
};

[[nodiscard]] bool IsRegistered(const ModemState& modem, Domain domain);
/// AT+CREG=n, AT+CGREG=n.
[[nodiscard]] int& ReportLevel(ModemState& modem, Domain domain);
/// "<stat>", and with level 2 and a network the location area and the cell.
[[nodiscard]] std::string DescribeRegistration(ModemState& modem, Domain domain);
/// The line that announces a change: "+CREG: 1".
[[nodiscard]] std::string RegistrationNews(ModemState& modem, Domain domain);

}  // namespace modem_simulator
