// SPDX-License-Identifier: MIT
// Sets up a process that runs control programs, whoever started it.
#pragma once

namespace corvane::cli {

/// For every subcommand, first of all: opens /dev/null in place of a standard stream that is
/// closed, so that no file or modem that is opened later gets its number and thus the output; and
/// makes a broken pipe an error of the write, not the end of the process.
void SetUpStandardStreams();

/// Makes sure that a command which a block starts inherits nothing from this process or from the
/// one that started it:
///   - descriptors that are open now become close-on-exec, except standard input, output and error;
///   - signals that are ignored now (by nohup, by a service manager) are caught and dropped: that
///     looks the same here, but is not inherited;
///   - SIGINT and SIGTERM, however, get their ordinary effect if they are ignored now, since they
///     are how people end a control program that a script has put into the background;
///   - no signal stays blocked.
void SetUpProcess();

/// Whether a signal is ignored now. Ask before SetUpProcess, which changes that.
[[nodiscard]] bool IsIgnored(int signal);

}  // namespace corvane::cli
