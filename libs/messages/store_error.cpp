// SPDX-License-Identifier: MIT
#include "libs/messages/store_error.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <cerrno>
#include <system_error>

namespace messages {
namespace {

namespace fs = std::filesystem;

/// SQLite's primary result code; SQLITE_OK if it is another error.
int ResultCode(const std::exception& error) {
  const auto* const from_sqlite = dynamic_cast<const SQLite::Exception*>(&error);
  return from_sqlite == nullptr ? SQLITE_OK : from_sqlite->getErrorCode() & 0xFF;
}

bool MeansNoRoom(int system_error) {
  return system_error == ENOSPC || system_error == EDQUOT || system_error == EFBIG;
}

bool IsDiskFull(const std::exception& error, int system_error) {
  const int code = ResultCode(error);
  if (code == SQLITE_FULL || (code == SQLITE_IOERR && MeansNoRoom(system_error))) return true;
  const auto* const from_files = dynamic_cast<const fs::filesystem_error*>(&error);
  return from_files != nullptr && MeansNoRoom(from_files->code().value());
}

std::string Cause(const std::exception& error, int system_error) {
  if (const auto* const from_files = dynamic_cast<const fs::filesystem_error*>(&error)) {
    return from_files->path1().string() + ": " + from_files->code().message();
  }
  if (system_error == 0) return error.what();
  return std::string(error.what()) + ", " + std::generic_category().message(system_error);
}

}  // namespace

bool MeansDamage(const std::exception& error) {
  if (dynamic_cast<const StoreDamaged*>(&error) != nullptr) return true;
  const int code = ResultCode(error);
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool IsTemporary(const std::exception& error, int system_error) {
  return IsDiskFull(error, system_error) || ResultCode(error) == SQLITE_BUSY;
}

std::string ProblemSentence(const fs::path& file, const std::exception& error, int system_error) {
  if (dynamic_cast<const StoreError*>(&error) != nullptr) return error.what();
  const std::string name = file.string();
  if (IsDiskFull(error, system_error)) {
    return "the disk of the store " + name +
           " is full: messages are kept in memory, and written when there is room. Free some space";
  }
  return "the store " + name + " cannot be written (" + Cause(error, system_error) +
         "): messages are kept in memory, and written when that works. Check the disk, and that "
         "this "
         "user may write to the folder";
}

}  // namespace messages
