// SPDX-License-Identifier: MIT
// A store that cannot be used is kept under another name, for people to look at. Threads: any.
#pragma once

#include <filesystem>

#include "libs/messages/row.h"

namespace messages {

/// Whether anything has this name, be it a symbolic link that leads nowhere.
[[nodiscard]] bool Exists(const std::filesystem::path& file);

/// `file` with `suffix` added.
[[nodiscard]] std::filesystem::path WithSuffix(const std::filesystem::path& file,
                                               const char* suffix);

/// Renames `file` and its log ("-wal"), as far as they exist, to names that begin with
/// FILE.damaged-YYYYMMDD-HHMMSS (UTC), and removes its index ("-shm"), which is made from the log.
/// @return the new name of `file`. @throws std::filesystem::filesystem_error
std::filesystem::path PutAside(const std::filesystem::path& file, WallTime now);

/// Copies the log of `file` to such a name. @return that name.
/// @throws std::filesystem::filesystem_error
std::filesystem::path CopyLogAside(const std::filesystem::path& file, WallTime now);

}  // namespace messages
