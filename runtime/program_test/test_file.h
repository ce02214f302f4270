// SPDX-License-Identifier: MIT
// A file with tests of control programs. Threads: one.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "runtime/corvane/lua_environment.h"
#include "runtime/program_test/captured.h"

namespace corvane::program_test {

/// How a test ended.
struct TestResult {
  std::string problem;  ///< empty: it has passed
  std::vector<LogLine> log;
  std::vector<std::string> output;
};

class TestFile {
 public:
  /// Reads and compiles the file. @param path as the user wrote it
  /// Throws LuaError for one that cannot be read or is not valid Lua.
  explicit TestFile(const std::string& path);

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The names of its tests in their order. Runs the file, but none of them. Throws LuaError when
  /// that fails, and when there are none.
  [[nodiscard]] std::vector<std::string> ReadNames(std::chrono::milliseconds timeout) const;
  /// Runs the test with this number, counted from 1, in a Lua state and a folder of its own.
  [[nodiscard]] TestResult Run(std::size_t number, std::chrono::milliseconds timeout) const;

 private:
  std::string path_;
  std::filesystem::path folder_;
  std::string text_;
};

}  // namespace corvane::program_test
