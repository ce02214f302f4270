// SPDX-License-Identifier: MIT
// Where this add-in keeps the messages of the program that is running.
#pragma once

#include <filesystem>

namespace corvane_sms {

/// The folder that the runtime names; where it cannot, $STATE_DIRECTORY, else one named after the
/// process under $XDG_STATE_HOME/corvane or ~/.local/state/corvane. Empty: there is none.
[[nodiscard]] std::filesystem::path ProgramFolder();

}  // namespace corvane_sms
