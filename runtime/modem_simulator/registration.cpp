// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/registration.h"

#include <fmt/format.h>

namespace modem_simulator {
namespace {

constexpr std::string_view kLocation = ",\"1A2B\",\"C0DE\"";  // location area code, cell identity

}  // namespace

bool IsRegistered(const ModemState& modem, Domain domain) {
  return modem.online() && (domain == Domain::kCircuit || modem.packet_attached);
}

int& ReportLevel(ModemState& modem, Domain domain) {
  return domain == Domain::kCircuit ? modem.settings.circuit_reports
                                    : modem.settings.packet_reports;
}

std::string DescribeRegistration(ModemState& modem, Domain domain) {
  const bool registered = IsRegistered(modem, domain);
  const bool located = registered && ReportLevel(modem, domain) == 2;
  return fmt::format("{:d}{}", registered, located ? kLocation : "");
}

std::string RegistrationNews(ModemState& modem, Domain domain) {
  return modem.Header(domain == Domain::kCircuit ? "+CREG" : "+CGREG") +
         DescribeRegistration(modem, domain);
}

}  // namespace modem_simulator
