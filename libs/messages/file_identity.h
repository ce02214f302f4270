// SPDX-License-Identifier: MIT
// Whether a name still means the same file. Threads: any.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <utility>

namespace messages {

/// Device and inode; empty: there is no such file.
using FileIdentity = std::optional<std::pair<dev_t, ino_t>>;

/// Of an open file.
[[nodiscard]] inline FileIdentity IdentityOf(int descriptor) {
  struct stat found {};
  if (fstat(descriptor, &found) != 0) return std::nullopt;
  return std::pair(found.st_dev, found.st_ino);
}

/// Of the file with this name, which may be a symbolic link.
[[nodiscard]] inline FileIdentity IdentityOf(const std::filesystem::path& file) {
  struct stat found {};
  if (lstat(file.c_str(), &found) != 0) return std::nullopt;
  return std::pair(found.st_dev, found.st_ino);
}

}  // namespace messages
