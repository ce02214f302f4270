// SPDX-License-Identifier: MIT
// Where a control program's runtime keeps what must outlast it: one folder for each program.
// Threads: any.
#pragma once

#include <filesystem>
#include <string_view>

namespace corvane {

/// $STATE_DIRECTORY (systemd's; the first of several), else $XDG_STATE_HOME/corvane/PROGRAM, else
/// ~/.local/state/corvane/PROGRAM, where PROGRAM is the program's file name without ".lua". Empty:
/// there is no home directory either. The folder need not exist.
[[nodiscard]] std::filesystem::path StateFolder(const std::filesystem::path& program);

/// Writes a file of the folder, which is made (for its owner alone) if it is missing. The file, for
/// its owner alone too, has the old content or the new one whatever happens, a power cut included.
/// @throws std::filesystem::filesystem_error
void WriteStateFile(const std::filesystem::path& file, std::string_view content);

}  // namespace corvane
