// SPDX-License-Identifier: MIT
#include "libs/messages/put_aside.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <string>

#include "libs/base/private_folder.h"

namespace messages {
namespace {

namespace fs = std::filesystem;

std::string Stamp(WallTime now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  struct tm parts {};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> room{};
  const std::size_t size = std::strftime(room.data(), room.size(), "%Y%m%d-%H%M%S", &parts);
  return {room.data(), size};
}

/// A name that neither a file nor its log has.
fs::path FreeName(const fs::path& file, WallTime now) {
  const std::string base = file.string() + ".damaged-" + Stamp(now);
  fs::path name = base;
  for (int more = 2; Exists(name) || Exists(WithSuffix(name, "-wal")); ++more) {
    name = base + "-" + std::to_string(more);
  }
  return name;
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
