// SPDX-License-Identifier: MIT
#include "runtime/cli/log_setup.h"

#include <fmt/format.h>
#include <spdlog/details/os.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <mutex>
#include <string_view>

#include "libs/base/printable.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/error_output.h"

namespace corvane::cli {
namespace {

/// ECMA-48: the colour of each level, from trace on.
constexpr std::array<std::string_view, 6> kColours{
    "\033[37m", "\033[36m", "\033[32m", "\033[33m\033[1m", "\033[31m\033[1m", "\033[1m\033[41m"};
constexpr std::string_view kColourEnd = "\033[m";

/// Makes lines of log messages. A line never contains a control character of a text from outside,
/// whoever logs it.
class LineFormatter {
 public:
  LineFormatter() : formatter_("%Y-%m-%d %H:%M:%S.%e %^%-7l%$ %v") {}

  std::string Format(const spdlog::details::log_msg& message) {
    const std::string text = Printable({message.payload.data(), message.payload.size()}, "\t");
    spdlog::details::log_msg shown(message);
    shown.payload = text;
    spdlog::memory_buf_t line;
    formatter_.format(shown, line);
    std::string coloured(line.data(), line.size());
    if (coloured_) {
      coloured.insert(shown.color_range_end, kColourEnd);
      coloured.insert(shown.color_range_start,
                      kColours.at(static_cast<std::size_t>(message.level)));
    }
    return coloured;
  }

 private:
  spdlog::pattern_formatter formatter_;
  bool coloured_ = isatty(STDERR_FILENO) != 0 && spdlog::details::os::is_color_terminal();
};

class ErrorOutputSink : public spdlog::sinks::base_sink<std::mutex> {
 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    WriteError(lines_.Format(message),
               message.level >= spdlog::level::err ? Importance::kHigh : Importance::kOrdinary);
  }
  void flush_() override {}

 private:
  LineFormatter lines_;
};

std::string DropNotice(std::uint64_t lines) {
  const std::string text =
      fmt::format("{} log lines were dropped here: standard error is read too slowly", lines);
  return LineFormatter().Format({"corvane", spdlog::level::warn, text});
}

}  // namespace

CLI::Validator LogLevel() {
  return OneOf({"trace", "debug", "info", "warning", "error", "off"});
}

void AddLogLevelOption(CLI::App& command, std::string& level) {
  command.add_option("--log-level", level, "Lowest level that is logged")
      ->check(LogLevel())
      ->capture_default_str();
}

void SetUpLog(const std::string& level) {
  StartErrorQueue(DropNotice);
  auto logger = std::make_shared<spdlog::logger>("corvane", std::make_shared<ErrorOutputSink>());
  logger->set_level(spdlog::level::from_str(level));
  spdlog::set_default_logger(logger);
}

}  // namespace corvane::cli
