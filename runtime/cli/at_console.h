// SPDX-License-Identifier: MIT
// An AT console: commands from standard input go to a modem, its lines to standard output.
// Threads: one.
#pragma once

#include <memory>
#include <string>

#include "runtime/modem_driver/serial_line.h"

namespace corvane::cli {

/// Runs until the input ends, or "quit" is entered. On a terminal it has a history, and shows what
/// the modem sends at any time; otherwise each command waits for the answer to the one before it.
/// After the modem's prompt the next line is the text of a message; an empty one leaves the prompt.
/// @param line to a modem whose echo is off
/// @return why the line was lost; empty: it was not
[[nodiscard]] std::string RunAtConsole(std::unique_ptr<SerialLine> line);

}  // namespace corvane::cli
