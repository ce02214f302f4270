// SPDX-License-Identifier: MIT
// The log of a `corvane` process.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace corvane::cli {

/// Adds `--log-level` to a subcommand; `level` keeps what was given.
void AddLogLevelOption(CLI::App& command, std::string& level);

/// Sends the log to standard error, one line each with date and time; level as given.
void SetUpLog(const std::string& level);

}  // namespace corvane::cli
