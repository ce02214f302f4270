// SPDX-License-Identifier: MIT
// The subcommands of `corvane`. Each adds itself to the command line and says what to do when it is
// chosen.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace corvane::cli {

/// Exit statuses of every subcommand.
enum ExitStatus : int {
  kSuccess = 0,
  kProgramFailed = 1,  ///< the control program ended with an error
  kUsage = 2,          ///< wrong options, or a file that cannot be used
};

/// What a chosen subcommand does; returns the exit status.
using Action = std::function<int()>;

/// A CLI11 validator: empty when `text` is a duration, else what is wrong with it.
[[nodiscard]] std::string CheckDuration(const std::string& text);

void AddRunCommand(CLI::App& app, Action& action);
void AddBlocksCommand(CLI::App& app, Action& action);
void AddModemCommand(CLI::App& app, Action& action);
void AddPduCommand(CLI::App& app, Action& action);

}  // namespace corvane::cli
