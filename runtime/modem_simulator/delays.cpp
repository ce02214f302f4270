// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/delays.h"

#include <algorithm>
#include <array>

namespace modem_simulator {
namespace {

constexpr std::array kDelays{
    DelayRow{"network", "the network's confirmation of a message", &Delays::network},
    DelayRow{"prompt", "the prompt for a message", &Delays::prompt},
    DelayRow{"list", "listing or reading messages", &Delays::list},
    DelayRow{"delete", "deleting messages", &Delays::deletion}};

}  // namespace

std::span<const DelayRow> DelayTable() {
  return kDelays;
}

const DelayRow* FindDelay(std::string_view name) {
  const auto row = std::find_if(kDelays.begin(), kDelays.end(),
                                [name](const DelayRow& r) { return r.name == name; });
  return row == kDelays.end() ? nullptr : &*row;
}

}  // namespace modem_simulator
