// SPDX-License-Identifier: MIT
// Warnings that would otherwise repeat endlessly: each is logged once in a while, with a count.
// Threads: one.
#pragma once

#include <chrono>
#include <map>
#include <string>

namespace corvane {

class RareWarning {
 public:
  explicit RareWarning(std::chrono::milliseconds interval) : interval_(interval) {}

  /// @param what the same for all warnings that count as one
  void Log(const std::string& what, const std::string& text);

 private:
  struct Last {
    std::chrono::steady_clock::time_point logged;
    unsigned kept_back = 0;
  };

  std::chrono::milliseconds interval_;
  std::map<std::string, Last> last_;
};

}  // namespace corvane
