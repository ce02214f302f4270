// SPDX-License-Identifier: MIT
// What one test has for itself: a folder, an outside world, what is logged and printed, and the
// program once the test has loaded it. Threads: one.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "runtime/program_test/captured.h"
#include "runtime/program_test/tested_program.h"
#include "runtime/program_test/world.h"

namespace corvane::program_test {

/// A folder that is removed with everything in it; the process's current folder while it lives.
class TestFolder {
 public:
  /// Throws std::filesystem::filesystem_error.
  TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder();
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};

/// The process's time zone while it lives; the one before afterwards.
class TestZone {
 public:
  TestZone();
  TestZone(const TestZone&) = delete;
  TestZone& operator=(const TestZone&) = delete;
  ~TestZone();
  /// @param zone such as Europe/Berlin. @return false if the system does not know it
  [[nodiscard]] static bool Set(const std::string& zone);

 private:
  std::string before_;
  bool was_set_;
};

struct TestSession {
  std::filesystem::path test_folder;  ///< of the test file; programs are found from there
  TestFolder folder;
  TestZone zone;
  World world;
  CapturedLog log;
  CapturedPrint print;
  std::unique_ptr<TestedProgram> program;

  explicit TestSession(std::filesystem::path test_file_folder)
      : test_folder(std::move(test_file_folder)) {}
};

}  // namespace corvane::program_test
