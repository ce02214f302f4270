// SPDX-License-Identifier: MIT
// The last lines of the log, for the bench. Threads: any.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace corvane::bench {

struct LogLine {
  double time = 0;  ///< seconds since 1970, UTC
  spdlog::level::level_enum level = spdlog::level::info;
  std::string text;  ///< printable, one line
};

/// A sink that keeps a bounded number of lines.
class LogTap : public spdlog::sinks::base_sink<std::mutex> {
 public:
  static constexpr std::size_t kLines = 1000;
  static constexpr std::size_t kLongestLine = 4096;  ///< octets; the rest is cut

  struct Part {
    std::vector<LogLine> lines;
    std::uint64_t dropped = 0;  ///< lines between `from` and the first of `lines`
    std::uint64_t next = 0;     ///< number of the line after the last
  };
  /// The lines from number `from` on; lines are numbered from 0.
  [[nodiscard]] Part From(std::uint64_t from);

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}

 private:
  std::deque<LogLine> lines_;
  std::uint64_t first_ = 0;  // number of lines_.front()
};

}  // namespace corvane::bench
