// SPDX-License-Identifier: MIT
#include "runtime/cli/log_setup.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include "runtime/cli/commands.h"

namespace corvane::cli {

void AddLogLevelOption(CLI::App& command, std::string& level) {
  command.add_option("--log-level", level, "trace, debug, info, warning, error or off")
      ->check(OneOf({"trace", "debug", "info", "warning", "error", "off"}))
      ->capture_default_str();
}

void SetUpLog(const std::string& level) {
  auto logger = spdlog::stderr_color_mt("corvane");
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %^%-7l%$ %v");
  logger->set_level(spdlog::level::from_str(level));
  spdlog::set_default_logger(logger);
}

}  // namespace corvane::cli
