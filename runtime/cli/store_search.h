// SPDX-License-Identifier: MIT
// Which store of messages the command works on.
#pragma once

#include <filesystem>
#include <string>

namespace corvane::cli {

/// The file that `--store` names, or that of $STATE_DIRECTORY, or the only one in the folders of
/// the user's programs. @throws std::runtime_error when there is none, or more than one, which it
/// lists
[[nodiscard]] std::filesystem::path FindStore(const std::string& given);

}  // namespace corvane::cli
