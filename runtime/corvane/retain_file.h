// SPDX-License-Identifier: MIT
// Reading, writing and putting aside the file of retained values; which process may.
// Threads: one at a time.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "libs/base/descriptor.h"

namespace corvane {

/// Another process uses the folder.
class FolderInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One folder, and the right to use it.
class RetainFile {
 public:
  explicit RetainFile(const std::filesystem::path& folder);

  /// Creates the folder if it is missing, and locks it until this object ends.
  /// Throws FolderInUse, or std::filesystem::filesystem_error.
  void Lock();
  /// What is kept; an empty object if there is no file. A file that cannot be read or is damaged
  /// is put aside, which is logged. Throws std::filesystem::filesystem_error if that fails.
  [[nodiscard]] nlohmann::json Read();
  /// Replaces the file. Throws std::filesystem::filesystem_error; the old one is then still there.
  void Write(const nlohmann::json& values);
  /// Gives the file another name, if there is one; logs it with the reason.
  /// Throws std::filesystem::filesystem_error.
  void PutAside(const std::string& reason);

  [[nodiscard]] const std::filesystem::path& path() const { return file_; }

 private:
  std::filesystem::path file_;
  Descriptor lock_;  // of the folder: nothing needs to be written for it
};

}  // namespace corvane
