// SPDX-License-Identifier: MIT
// The option `--config`: a file that holds options of a subcommand.
#pragma once

#include <CLI/CLI.hpp>

namespace corvane::cli {

/// Adds `--config FILE` to a subcommand. A line of the file is `name = value`, with the long name
/// of an option or the name of a positional one; the value is the rest of the line, and may be in
/// double quotes, with \" for a quote within them. A flag is `name = true`; an option that may be
/// repeated has one line for each value. Empty lines and those that begin with `#` are ignored. The
/// command line takes precedence over the file.
///
/// Wrong usage is a CLI::ConfigError that names file and line: a file that cannot be read, a line
/// of another form, an unknown name, a value that the option refuses, an option that is repeated
/// but may not be.
void AddConfigOption(CLI::App& command);

}  // namespace corvane::cli
