// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <span>

#include "libs/base/printable.h"

namespace corvane {
namespace {

struct Meaning {
  int number;
  std::string_view text;
};

// 1 to 127: 3GPP TS 24.011 clause E.2; 128 to 255: 3GPP TS 23.040 clause 9.2.3.22.
constexpr std::array kCms{
    Meaning{1, "unassigned number"},
    Meaning{8, "operator determined barring"},
    Meaning{10, "call barred"},
    Meaning{21, "short message transfer rejected"},
    Meaning{27, "destination out of service"},
    Meaning{28, "unidentified subscriber"},
    Meaning{29, "facility rejected"},
    Meaning{30, "unknown subscriber"},
    Meaning{38, "network out of order"},
    Meaning{41, "temporary failure"},
    Meaning{42, "congestion"},
    Meaning{47, "resources unavailable"},
    Meaning{50, "requested facility not subscribed"},
    Meaning{69, "requested facility not implemented"},
    Meaning{96, "invalid mandatory information"},
    Meaning{111, "protocol error"},
    Meaning{127, "interworking"},
    Meaning{208, "SIM SMS storage full"},
    Meaning{300, "ME failure"},
    Meaning{301, "SMS service of ME reserved"},
    Meaning{302, "operation not allowed"},
    Meaning{303, "operation not supported"},
    Meaning{304, "invalid PDU mode parameter"},
    Meaning{305, "invalid text mode parameter"},
    Meaning{310, "SIM not inserted"},
    Meaning{311, "SIM PIN required"},
    Meaning{313, "SIM failure"},
    Meaning{314, "SIM busy"},
    Meaning{316, "SIM PUK required"},
    Meaning{320, "memory failure"},
    Meaning{321, "invalid memory index"},
    Meaning{322, "memory full"},
    Meaning{330, "service centre address unknown"},
    Meaning{331, "no network service"},
    Meaning{332, "network timeout"},
    Meaning{340, "no acknowledgement expected"},
    Meaning{500, "unknown error"},
};

constexpr std::array kCme{
    Meaning{0, "phone failure"},
    Meaning{3, "operation not allowed"},
    Meaning{4, "operation not supported"},
    Meaning{5, "PH-SIM PIN required"},
    Meaning{10, "SIM not inserted"},
    Meaning{11, "SIM PIN required"},
    Meaning{12, "SIM PUK required"},
    Meaning{13, "SIM failure"},
    Meaning{14, "SIM busy"},
    Meaning{15, "SIM wrong"},
    Meaning{16, "incorrect password"},
    Meaning{17, "SIM PIN2 required"},
    Meaning{18, "SIM PUK2 required"},
    Meaning{20, "memory full"},
    Meaning{21, "invalid index"},
    Meaning{22, "not found"},
    Meaning{23, "memory failure"},
    Meaning{30, "no network service"},
    Meaning{31, "network timeout"},
    Meaning{32, "network not allowed, emergency calls only"},
    Meaning{100, "unknown"},
};

constexpr std::string_view kCmsPrefix = "+CMS ERROR: ";
constexpr std::string_view kCmePrefix = "+CME ERROR: ";

std::string_view Find(std::span<const Meaning> meanings, std::string_view digits) {
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return {};
  const auto found = std::find_if(meanings.begin(), meanings.end(),
                                  [number](const Meaning& row) { return row.number == number; });
  return found == meanings.end() ? std::string_view() : found->text;
}

}  // namespace

std::string DescribeRefusal(std::string_view answer) {
  const std::size_t begin = std::min(answer.find(kCmsPrefix), answer.find(kCmePrefix));
  if (begin == answer.npos) return {};
  const std::string_view line = answer.substr(begin, answer.find_first_of("\r\n", begin) - begin);
  const bool cms = line.starts_with(kCmsPrefix);
  const std::string_view meaning =
      Find(cms ? std::span<const Meaning>(kCms) : std::span<const Meaning>(kCme),
           line.substr(kCmsPrefix.size()));
  return meaning.empty() ? Printable(line) : fmt::format("{} ({})", line, meaning);
}

}  // namespace corvane
