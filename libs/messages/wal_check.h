// SPDX-License-Identifier: MIT
// Damage in an SQLite write-ahead log (https://www.sqlite.org/fileformat2.html, section 4). SQLite
// takes a log up to its first wrong checksum and silently drops the rest: right for an interrupted
// last transaction, a loss of committed ones otherwise. Threads: any.
#pragma once

#include <filesystem>

namespace messages {

/// True when transactions are lost that had been committed before the last one began. `log` may be
/// missing or empty. Nothing may be writing to it.
/// @throws std::filesystem::filesystem_error if it cannot be read.
[[nodiscard]] bool LostTransactions(const std::filesystem::path& log);

}  // namespace messages
