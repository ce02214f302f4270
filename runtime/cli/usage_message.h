// SPDX-License-Identifier: MIT
// What is wrong with a command line, in our own words.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace corvane::cli {

/// The subcommand that the command line has chosen, the innermost one; without any, `app` itself.
[[nodiscard]] const CLI::App& ChosenCommand(const CLI::App& app);

/// "; did you mean --cycle?" when an option of `chosen` is near to `name`, else nothing. Without
/// dashes in `name` the answer has none.
[[nodiscard]] std::string MeantOption(const CLI::App& chosen, const std::string& name);

/// Why parsing with `app` failed with `error`: which word, what was expected, what to do. The
/// message of an option's own check is left as it is. One line.
[[nodiscard]] std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error);

}  // namespace corvane::cli
