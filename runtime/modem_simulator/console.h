// SPDX-License-Identifier: MIT
// The console's language: one command per line.
#pragma once

#include <string>
#include <string_view>

#include "runtime/modem_simulator/controls.h"

namespace modem_simulator {

/// What a line asks for, or what is wrong with it and what to write instead.
struct ConsoleLine {
  Controls::Action action;  ///< null for an empty line, a comment (#) and an error
  std::string error;        ///< empty if the line is correct
};

[[nodiscard]] ConsoleLine ParseConsoleLine(std::string_view line);

/// One line per command, for `help` and --help.
[[nodiscard]] std::string ConsoleHelp();

}  // namespace modem_simulator
