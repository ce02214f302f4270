// SPDX-License-Identifier: MIT
// A folder for the files of a fuzz target: in memory where the system has such a place, since a
// target writes thousands of files each second. Removed when the target ends.
#pragma once

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp

#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/require.h"

class QuickFolder {
 public:
  QuickFolder() {
    std::error_code error;
    const bool in_memory = std::filesystem::is_directory("/dev/shm", error);
    std::string name = (in_memory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) +
                       "/corvane_fuzz_XXXXXX";
    Require(mkdtemp(name.data()) != nullptr);
    path_ = name;
  }
  QuickFolder(const QuickFolder&) = delete;
  QuickFolder& operator=(const QuickFolder&) = delete;
  ~QuickFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  void Clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      std::filesystem::remove_all(entry.path());
    }
  }

 private:
  std::filesystem::path path_;
};

inline std::string ReadFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  std::string content(in ? static_cast<std::size_t>(in.tellg()) : 0, '\0');
  in.seekg(0);
  in.read(content.data(), static_cast<std::streamsize>(content.size()));
  return content;
}

inline void WriteFile(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}
