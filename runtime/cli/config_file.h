// SPDX-License-Identifier: MIT
// The option `--config`: a file that holds options of a subcommand.
#pragma once

#include <CLI/CLI.hpp>

namespace corvane::cli {

/// Adds `--config FILE` to a subcommand. A line of the file is `name = value`, with the long name
/// of an option or the name of a positional one; the value is the rest of the line, and may stand
/// in double quotes, with \" for a quote within them. A flag is `name = true`, an option that may
/// be repeated takes a line each. Empty lines and those that begin with `#` say nothing. The
/// command line wins over the file.
///
/// Wrong usage, as CLI::ConfigError that names file and line: a file that cannot be read, a line of
/// another form, an unknown name, a value that the option refuses, an option too often.
void AddConfigOption(CLI::App& command);

}  // namespace corvane::cli
