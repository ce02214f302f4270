// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/commands.h"

#include <algorithm>
#include <array>

#include "runtime/modem_simulator/handlers.h"

namespace modem_simulator {
namespace {

struct CommandRow {
  std::string_view name;
  Handler* handler;
};

constexpr std::array kCommands{
    // The line and its settings (ITU-T V.250).
    CommandRow{"E", Echo},
    CommandRow{"V", Verbose},
    CommandRow{"Q", Quiet},
    CommandRow{"Z", ResetSettings},
    CommandRow{"&F", ResetSettings},
    CommandRow{"D", Dial},
    CommandRow{"S0", Register},
    CommandRow{"S3", Register},
    CommandRow{"S4", Register},
    CommandRow{"S5", Register},
    CommandRow{"+IPR", Speed},
    CommandRow{"+IFC", FlowControl},
    CommandRow{"+ICF", CharacterFraming},
    // Accepted without an effect on what is simulated.
    CommandRow{"X", Accept},
    CommandRow{"H", Accept},
    CommandRow{"L", Accept},
    CommandRow{"M", Accept},
    CommandRow{"&C", Accept},
    CommandRow{"&D", Accept},
    CommandRow{"&K", Accept},
    CommandRow{"&W", Accept},
    // Identification (V.250 clause 6.1; 3GPP TS 27.007 clause 5).
    CommandRow{"I", ProductName},
    CommandRow{"+CGMI", Manufacturer},
    CommandRow{"+GMI", Manufacturer},
    CommandRow{"+CGMM", Model},
    CommandRow{"+GMM", Model},
    CommandRow{"+CGMR", Revision},
    CommandRow{"+GMR", Revision},
    CommandRow{"+CGSN", SerialNumber},
    CommandRow{"+GSN", SerialNumber},
    CommandRow{"+GCAP", Capabilities},
    // SIM card, network and clock (3GPP TS 27.007 clauses 5 to 10).
    CommandRow{"+CMEE", ErrorLevel},
    CommandRow{"+CSCS", SelectCharacterSet},
    CommandRow{"+CPIN", Pin},
    CommandRow{"+CSQ", Signal},
    CommandRow{"+CREG", CircuitRegistration},
    CommandRow{"+CGREG", PacketRegistration},
    CommandRow{"+CGATT", PacketAttachment},
    CommandRow{"+COPS", Operator},
    CommandRow{"+CFUN", Functionality},
    CommandRow{"+CIMI", Subscriber},
    CommandRow{"+CPAS", Activity},
    CommandRow{"+CCLK", Clock},
    // Messages (3GPP TS 27.005 clauses 3 and 4).
    CommandRow{"+CMGF", MessageFormat},
    CommandRow{"+CPMS", Storage},
    CommandRow{"+CSCA", ServiceCentre},
    CommandRow{"+CSMS", MessageService},
    CommandRow{"+CNMI", NewMessageIndications},
    CommandRow{"+CNMA", Acknowledge},
    CommandRow{"+CSMP", TextModeParameters},
    CommandRow{"+CSDH", ShowTextModeParameters},
    CommandRow{"+CMGL", List},
    CommandRow{"+CMGR", Read},
    CommandRow{"+CMGD", Delete},
    CommandRow{"+CMGS", Send},
    CommandRow{"+CMGW", Write},
    CommandRow{"+CMSS", SendStored},
};

}  // namespace

Result Execute(ModemState& modem, const AtCommand& command, Answer& answer) {
  const auto row = std::find_if(kCommands.begin(), kCommands.end(),
                                [&](const CommandRow& r) { return r.name == command.name; });
  return row == kCommands.end() ? kError : row->handler(modem, command, answer);
}

Result CheckSim(const ModemState& modem) {
  if (modem.sim.ready()) return kOk;
  if (!modem.sim.inserted()) return Cms(kSimNotInserted);
  return Cms(modem.sim.blocked() ? kSimPukRequired : kSimPinRequired);
}

Result CheckTransfer(ModemState& modem, const AtCommand& command) {
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  return modem.faults.TakeFailure(std::string_view(command.name).substr(1)).value_or(kOk);
}

}  // namespace modem_simulator
