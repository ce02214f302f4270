// SPDX-License-Identifier: MIT
// Why a store of messages cannot be used, as sentences for people. Threads: any.
#pragma once

#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace messages {

/// The store cannot be used as it is, and its file has not been touched. what(): what is wrong with
/// which file and what to do, as one sentence or two without a full stop at the end.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The content of the file is not that of a store. what(): what was found.
class StoreDamaged : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Whether this says that the file is damaged: StoreDamaged, or an SQLite::Exception of that kind.
[[nodiscard]] bool MeansDamage(const std::exception& error);
// `system_error`: errno of the system call that failed, or 0.

/// Whether the file can stay open and the same may be tried again: the disk is full, or another
/// program is writing.
[[nodiscard]] bool IsTemporary(const std::exception& error, int system_error);

/// The sentence of Store::problem().
[[nodiscard]] std::string ProblemSentence(const std::filesystem::path& file,
                                          const std::exception& error, int system_error);

}  // namespace messages
