// SPDX-License-Identifier: MIT
// What a program under test logs and prints. Threads: any may log; the test's own thread reads.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "libs/base/descriptor.h"

namespace spdlog {
class logger;
}

namespace corvane::program_test {

struct LogLine {
  std::string level;
  std::string text;
};

/// While it lives, the log goes into memory.
class CapturedLog {
 public:
  CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog();
  [[nodiscard]] std::vector<LogLine> lines() const;

 private:
  class Sink;
  std::shared_ptr<Sink> sink_;
  std::shared_ptr<spdlog::logger> before_;
};

/// While it lives, standard output goes into a file in memory: that of print, io.write and whatever
/// else writes there.
class CapturedPrint {
 public:
  /// Throws std::system_error.
  CapturedPrint();
  CapturedPrint(const CapturedPrint&) = delete;
  CapturedPrint& operator=(const CapturedPrint&) = delete;
  ~CapturedPrint();
  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  Descriptor file_;
  Descriptor before_;
};

}  // namespace corvane::program_test
