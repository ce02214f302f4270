// SPDX-License-Identifier: MIT
#include "libs/messages/put_aside.h"

#include <chrono>

#include "libs/base/aside_name.h"
#include "libs/base/private_folder.h"

namespace messages {
namespace {

namespace fs = std::filesystem;

/// A name that neither a file nor its log has.
fs::path FreeName(const fs::path& file, WallTime now) {
  return corvane::AsideName(
      file, std::chrono::system_clock::to_time_t(now),
      [](const fs::path& name) { return Exists(name) || Exists(WithSuffix(name, "-wal")); });
}

}  // namespace

bool Exists(const fs::path& file) {
  return fs::symlink_status(file).type() != fs::file_type::not_found;
}

fs::path WithSuffix(const fs::path& file, const char* suffix) {
  return file.string() + suffix;
}

fs::path PutAside(const fs::path& file, WallTime now) {
  fs::path name = FreeName(file, now);
  // The log first: were the file gone and the log left, the next start would drop it.
  const fs::path log = WithSuffix(file, "-wal");
  const bool is_empty = fs::is_regular_file(fs::symlink_status(log)) && fs::file_size(log) == 0;
  if (is_empty) fs::remove(log);
  if (Exists(log)) fs::rename(log, WithSuffix(name, "-wal"));
  if (Exists(file)) fs::rename(file, name);
  fs::remove(WithSuffix(file, "-shm"));
  corvane::SyncFolder(file.parent_path());
  return name;
}

fs::path CopyLogAside(const fs::path& file, WallTime now) {
  fs::path name = WithSuffix(FreeName(file, now), "-wal");
  fs::copy_file(WithSuffix(file, "-wal"), name);
  return name;
}

}  // namespace messages
