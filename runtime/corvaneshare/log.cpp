// SPDX-License-Identifier: MIT
// Writes log lines of add-ins to the runtime's log.
#include "share/log.h"

#include <spdlog/spdlog.h>

#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/corvaneshare/log_lines.h"

void corvane::LogLines(spdlog::level::level_enum level, std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  for (;;) {
    const std::size_t end = text.find('\n');
    spdlog::log(level, "{}", corvane::Printable(text.substr(0, end), "\t"));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

void logMsg(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  if (length >= 0) {
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    corvane::LogLines(spdlog::level::warn, {text.data(), static_cast<std::size_t>(length)});
  }
  va_end(again);
}

void logMsgLn(const char* line) {
  corvane::LogLines(spdlog::level::warn, line);
}

void logInfoLn(const char* line) {
  corvane::LogLines(spdlog::level::info, line);
}
