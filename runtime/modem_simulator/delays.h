// SPDX-License-Identifier: MIT
// How long the modem's steps take. Makers document 5 s for a prompt or a deletion, and minutes for
// the network.
#pragma once

#include <chrono>
#include <span>
#include <string_view>

namespace modem_simulator {

struct Delays {
  using Duration = std::chrono::nanoseconds;

  Duration network{0};
  Duration prompt{0};
  Duration list{0};
  Duration deletion{0};
};

struct DelayRow {
  std::string_view name;     ///< as users write it
  std::string_view meaning;  ///< what takes this time, for --help
  Delays::Duration Delays::*field;
};

[[nodiscard]] std::span<const DelayRow> DelayTable();
/// The row with this name; null if there is none.
[[nodiscard]] const DelayRow* FindDelay(std::string_view name);

}  // namespace modem_simulator
