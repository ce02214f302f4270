// SPDX-License-Identifier: MIT
// Opening a store of messages, whatever is found in its place. The caller holds the StoreLock.
// Threads: one at a time.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "libs/messages/row.h"
#include "libs/messages/store_file.h"

namespace messages {

/// A store that is open, and how that went.
struct OpenedStore {
  std::unique_ptr<StoreFile> file;
  bool is_new = false;               ///< there was none, or it has been put aside
  std::vector<std::string> notices;  ///< as Store::TakeNotices gives them
};

/// Opens the store, or makes one. What is damaged, or not a file, is renamed to
/// messages.db.damaged-DATE first, with its log. If `known_damage` is not empty, the file is known
/// to be damaged, and that is done in any case.
/// @throws StoreError for what must not be touched: a newer version, another program's file, a
/// symbolic link; SQLite::Exception, std::filesystem::filesystem_error when the disk fails.
[[nodiscard]] OpenedStore OpenStore(const std::filesystem::path& file, const std::string& vfs,
                                    WallTime now, const std::string& known_damage);

}  // namespace messages
