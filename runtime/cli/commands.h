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
  kUsage = 2,          ///< wrong from the start: options, or a file that cannot be used
};

/// What a chosen subcommand does; returns the exit status.
using Action = std::function<int()>;

/// Checks of an option's value, for CLI::Option::check: empty when it is right, else what is wrong
/// with it.
[[nodiscard]] std::string CheckDuration(const std::string& text);
[[nodiscard]] std::string CheckNotEmpty(const std::string& text);
/// A whole number from `lowest` to `highest`. (The option's own conversion would let some pass.)
[[nodiscard]] CLI::Validator WholeNumber(std::uint64_t lowest, std::uint64_t highest);
/// One of these words, which --help shows.
[[nodiscard]] CLI::Validator OneOf(std::vector<std::string> words);

/// @param words filled until the command line is parsed: the words for the program, after `--`
void AddRunCommand(CLI::App& app, const std::vector<std::string>& words, Action& action);
void AddBlocksCommand(CLI::App& app, Action& action);
void AddModemCommand(CLI::App& app, Action& action);
void AddPduCommand(CLI::App& app, Action& action);

}  // namespace corvane::cli
