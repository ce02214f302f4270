// SPDX-License-Identifier: MIT
// The folder in which the runtime keeps data beyond its end: one for each control program.
// Threads: any.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace corvane {

/// The name of a program: its file's, without ".lua".
[[nodiscard]] std::string ProgramName(const std::filesystem::path& program);

/// $STATE_DIRECTORY (systemd's; the first of several), else $XDG_STATE_HOME/corvane/PROGRAM, else
/// ~/.local/state/corvane/PROGRAM, where PROGRAM is the program's file name without ".lua". Empty:
/// there is no home directory either. The folder need not exist.
[[nodiscard]] std::filesystem::path StateFolder(const std::filesystem::path& program);

/// Makes the folder the answer of CorvaneStateFolder(); empty: none. Called before the program is
/// loaded, while no other thread asks.
void SetStateFolder(const std::filesystem::path& folder);

/// Where state folders are.
struct StateHome {
  std::filesystem::path folder;    ///< empty: there is no home directory either
  bool is_of_one_program = false;  ///< it is $STATE_DIRECTORY; else each program has a folder in it
};
[[nodiscard]] StateHome FindStateHome();

/// Writes a file of the folder, which is created if it is missing. Only the owner has access to
/// either. Whatever happens, even a power cut, the file has either the old content or the new.
/// @throws std::filesystem::filesystem_error
void WriteStateFile(const std::filesystem::path& file, std::string_view content);

}  // namespace corvane
