// SPDX-License-Identifier: MIT
// The subcommands of `corvane`. Each adds itself to the command line and says what to do when it is
// chosen.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane::cli {

/// Exit statuses of every subcommand.
enum ExitStatus : int {
  kSuccess = 0,
  kProgramFailed = 1,  ///< the control program ended with an error
  kUsage = 2,          ///< it could not start: wrong options, or a file that cannot be used
  kCycleTooLong = 3,   ///< a cycle lasted longer than the watchdog allows
};

/// What a chosen subcommand does; returns the exit status.
using Action = std::function<int()>;

/// Checks of an option's value, for CLI::Option::check. The result is empty if the value is right,
/// else it says what is wrong.
[[nodiscard]] std::string CheckDuration(const std::string& text);
[[nodiscard]] std::string CheckNotEmpty(const std::string& text);
/// A whole number from `lowest` to `highest`. (The option's own conversion accepts some others.)
[[nodiscard]] CLI::Validator WholeNumber(std::uint64_t lowest, std::uint64_t highest);
/// One of these words, which --help shows.
[[nodiscard]] CLI::Validator OneOf(std::vector<std::string> words);

/// @param words the words for the program, after `--`; filled before the command line is parsed
void AddRunCommand(CLI::App& app, const std::vector<std::string>& words, Action& action);
void AddBlocksCommand(CLI::App& app, Action& action);
void AddCheckModemCommand(CLI::App& app, Action& action);
void AddListCommand(CLI::App& app, Action& action);
void AddLogLevelCommand(CLI::App& app, Action& action);
void AddMessagesCommand(CLI::App& app, Action& action);
void AddModemCommand(CLI::App& app, Action& action);
void AddPduCommand(CLI::App& app, Action& action);
void AddTestCommand(CLI::App& app, Action& action);
void AddWatchCommand(CLI::App& app, Action& action);

}  // namespace corvane::cli
