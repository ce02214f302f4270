// SPDX-License-Identifier: MIT
// The log of a `corvane` process.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace corvane::cli {

/// The names of the levels.
[[nodiscard]] CLI::Validator LogLevel();

/// Adds `--log-level` to a subcommand; its value is stored in `level`.
void AddLogLevelOption(CLI::App& command, std::string& level);

/// Sends the log to standard error through the error queue: one line per message, with date and
/// time and without control characters.
void SetUpLog(const std::string& level);

}  // namespace corvane::cli
