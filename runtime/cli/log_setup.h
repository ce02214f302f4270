// SPDX-License-Identifier: MIT
// The log of a `corvane` process.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace corvane::cli {

/// Adds `--log-level` to a subcommand; `level` keeps what was given.
void AddLogLevelOption(CLI::App& command, std::string& level);

/// Sends the log to standard error by way of the error queue: one line each, with date and time and
/// without control characters.
void SetUpLog(const std::string& level);

}  // namespace corvane::cli
