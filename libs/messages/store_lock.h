// SPDX-License-Identifier: MIT
// The lock that lets only one program use a store of messages. Threads: one at a time.
#pragma once

#include <filesystem>

#include "libs/base/descriptor.h"

namespace messages {

/// Holds a lock on the file NAME.lock beside the store NAME. It belongs to the process, not to the
/// file's existence: the system releases it however the process ends.
class StoreLock {
 public:
  /// @throws StoreError when another store has it, with that one's process id in the text;
  /// std::filesystem::filesystem_error when the lock file cannot be made.
  explicit StoreLock(const std::filesystem::path& store);

  /// False after somebody has removed or replaced the lock file: another program may then take it.
  [[nodiscard]] bool IsInPlace() const;

 private:
  std::filesystem::path file_;
  corvane::Descriptor descriptor_;
};

}  // namespace messages
