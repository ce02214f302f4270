// SPDX-License-Identifier: MIT
#include "libs/gsm/network_errors.h"

#include <algorithm>
#include <array>

namespace gsm {
namespace {

using enum ErrorClass;

constexpr std::array kCms{
    // 3GPP TS 24.011 annex E.2, the network's causes. For good is what it says about the receiver,
    // the subscription or the message; what it says about its own state passes.
    NetworkError{1, kForGood, "unassigned number"},
    NetworkError{8, kForGood, "operator determined barring"},
    NetworkError{10, kForGood, "call barred"},
    // "does not wish to accept this message, although it could have": nothing says for ever.
    NetworkError{21, kForNow, "short message transfer rejected"},
    NetworkError{22, kForNow, "memory capacity exceeded"},
    NetworkError{27, kForNow, "destination out of service"},  // its interface, at the moment
    NetworkError{28, kForGood, "unidentified subscriber"},
    NetworkError{29, kForGood, "facility rejected"},
    NetworkError{30, kForGood, "unknown subscriber"},
    NetworkError{38, kForNow, "network out of order"},
    NetworkError{41, kForNow, "temporary failure"},
    NetworkError{42, kForNow, "congestion"},
    NetworkError{47, kForNow, "resources unavailable"},
    NetworkError{50, kForGood, "requested facility not subscribed"},
    NetworkError{69, kForGood, "requested facility not implemented"},
    NetworkError{81, kForNow, "invalid short message transfer reference"},  // each try has its own
    NetworkError{95, kForGood, "semantically incorrect message"},
    NetworkError{96, kForGood, "invalid mandatory information"},
    NetworkError{97, kForGood, "message type not implemented"},
    NetworkError{98, kForNow, "message not compatible with the protocol state"},  // a state passes
    NetworkError{99, kForGood, "information element not implemented"},
    NetworkError{111, kForNow, "protocol error"},  // "unspecified"
    NetworkError{127, kForNow, "interworking"},    // another network gave no cause
    // 3GPP TS 23.040 clause 9.2.3.22, the service centre's causes (TP-FCS).
    NetworkError{128, kForGood, "telematic interworking not supported"},
    NetworkError{129, kForGood, "short message type 0 not supported"},
    NetworkError{130, kForGood, "short message cannot be replaced"},
    NetworkError{143, kForGood, "protocol identifier refused"},
    NetworkError{144, kForGood, "alphabet not supported"},
    NetworkError{145, kForGood, "message class not supported"},
    NetworkError{159, kForGood, "data coding scheme refused"},
    NetworkError{160, kForGood, "command cannot be carried out"},
    NetworkError{161, kForGood, "command not supported"},
    NetworkError{175, kForGood, "command refused"},
    NetworkError{176, kForGood, "PDU not supported"},
    NetworkError{192, kForNow, "service centre busy"},
    NetworkError{193, kForGood, "no subscription at the service centre"},
    NetworkError{194, kForNow, "service centre failure"},
    NetworkError{195, kForGood, "invalid receiver address"},
    NetworkError{196, kForGood, "receiver barred"},
    NetworkError{197, kForGood, "rejected as a duplicate"},
    NetworkError{198, kForGood, "validity period format not supported"},
    NetworkError{199, kForGood, "validity period not supported"},
    NetworkError{208, kForNow, "SIM SMS storage full"},
    NetworkError{209, kForNow, "SIM cannot store short messages"},
    NetworkError{210, kForNow, "error in the mobile station"},
    NetworkError{211, kForNow, "memory capacity of the mobile station exceeded"},
    NetworkError{212, kForNow, "SIM application toolkit busy"},
    NetworkError{213, kForNow, "SIM data download error"},
    NetworkError{255, kForNow, "unspecified error"},
    // 3GPP TS 27.005 clause 3.2.5, the modem's own.
    NetworkError{300, kPort, "ME failure"},
    NetworkError{301, kPort, "SMS service of ME reserved"},
    NetworkError{302, kPort, "operation not allowed"},
    NetworkError{303, kPort, "operation not supported"},
    NetworkError{304, kForGood, "invalid PDU mode parameter"},
    NetworkError{305, kForGood, "invalid text mode parameter"},
    NetworkError{310, kSim, "SIM not inserted"},
    NetworkError{311, kSim, "SIM PIN required"},
    NetworkError{312, kSim, "PH-SIM PIN required"},
    NetworkError{313, kSim, "SIM failure"},
    NetworkError{314, kForNow, "SIM busy"},  // passes within 30 s of a start
    NetworkError{315, kSim, "SIM wrong"},
    NetworkError{316, kSim, "SIM PUK required"},
    NetworkError{317, kSim, "SIM PIN2 required"},
    NetworkError{318, kSim, "SIM PUK2 required"},
    NetworkError{320, kPort, "memory failure"},
    NetworkError{321, kPort, "invalid memory index"},
    NetworkError{322, kPort, "memory full"},
    NetworkError{330, kPort, "service centre address unknown"},  // a setting of modem or SIM
    NetworkError{331, kForNow, "no network service"},
    NetworkError{332, kForNow, "network timeout"},
    NetworkError{340, kPort, "no acknowledgement expected"},
    NetworkError{500, kForNow, "unknown error"},
};

// What is wrong with the message itself, +CMS ERROR says; these are about the modem.
constexpr std::array kCme{
    NetworkError{0, kPort, "phone failure"},
    NetworkError{3, kPort, "operation not allowed"},
    NetworkError{4, kPort, "operation not supported"},
    NetworkError{5, kSim, "PH-SIM PIN required"},
    NetworkError{10, kSim, "SIM not inserted"},
    NetworkError{11, kSim, "SIM PIN required"},
    NetworkError{12, kSim, "SIM PUK required"},
    NetworkError{13, kSim, "SIM failure"},
    NetworkError{14, kForNow, "SIM busy"},
    NetworkError{15, kSim, "SIM wrong"},
    NetworkError{16, kSim, "incorrect password"},
    NetworkError{17, kSim, "SIM PIN2 required"},
    NetworkError{18, kSim, "SIM PUK2 required"},
    NetworkError{20, kPort, "memory full"},
    NetworkError{21, kPort, "invalid index"},
    NetworkError{22, kPort, "not found"},
    NetworkError{23, kPort, "memory failure"},
    NetworkError{30, kForNow, "no network service"},
    NetworkError{31, kForNow, "network timeout"},
    NetworkError{32, kForNow, "network not allowed, emergency calls only"},
    NetworkError{50, kPort, "incorrect parameters"},
    NetworkError{100, kForNow, "unknown"},
};

const NetworkError* Find(std::span<const NetworkError> table, int number) {
  const auto row =
      std::lower_bound(table.begin(), table.end(), number,
                       [](const NetworkError& error, int wanted) { return error.number < wanted; });
  return row == table.end() || row->number != number ? nullptr : &*row;
}

ErrorClass ClassOf(const NetworkError* error) {
  return error == nullptr ? kForNow : error->error_class;
}

}  // namespace

std::span<const NetworkError> CmsErrors() noexcept {
  return kCms;
}

std::span<const NetworkError> CmeErrors() noexcept {
  return kCme;
}

const NetworkError* FindCmsError(int number) noexcept {
  return Find(kCms, number);
}

const NetworkError* FindCmeError(int number) noexcept {
  return Find(kCme, number);
}

ErrorClass ClassOfCmsError(int number) noexcept {
  return ClassOf(FindCmsError(number));
}

ErrorClass ClassOfCmeError(int number) noexcept {
  return ClassOf(FindCmeError(number));
}

}  // namespace gsm
