// SPDX-License-Identifier: MIT
// Folders for data that only their owner may read. Threads: any.
#pragma once

#include <filesystem>

namespace corvane {

/// Creates the folder, and missing ones above it, with access for the owner only. Those that
/// exist stay as they are. @throws std::filesystem::filesystem_error
void MakePrivateFolder(const std::filesystem::path& folder);

/// Returns when the names in the folder would survive a power cut.
/// @throws std::filesystem::filesystem_error
void SyncFolder(const std::filesystem::path& folder);

}  // namespace corvane
