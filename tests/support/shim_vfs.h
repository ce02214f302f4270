// SPDX-License-Identifier: MIT
// An SQLite VFS that asks a test before each change of a file: a disk that fails, stalls, or loses
// power.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <string>

namespace test_support {

/// What SQLite is about to do with a file. kShare: make the memory that its users share.
struct DiskCall {
  enum class Kind : std::uint8_t { kWrite, kTruncate, kSync, kDelete, kShare };
  Kind kind = Kind::kWrite;
  std::string path;
  std::int64_t at = 0;  ///< kWrite: offset; kTruncate: the new size
  std::string octets;   ///< kWrite
};

/// Registered under name() as long as it lives; it must outlive every database that uses it.
class ShimVfs {
 public:
  /// Called in the thread that uses the database. SQLITE_OK lets the call through; any other result
  /// code is what SQLite gets instead.
  using Hook = std::function<int(const DiskCall&)>;

  explicit ShimVfs(Hook hook);
  ShimVfs(const ShimVfs&) = delete;
  ShimVfs& operator=(const ShimVfs&) = delete;
  ~ShimVfs();

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] int Ask(const DiskCall& call) const { return hook_(call); }

 private:
  Hook hook_;
  std::string name_;
  sqlite3_vfs vfs_{};
};

}  // namespace test_support
