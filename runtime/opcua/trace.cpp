// SPDX-License-Identifier: MIT
// The stack's trace, written to the runtime's log with the position that the caller names.
#include <spdlog/spdlog.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "opcua/opcua.h"

void OpcUa_Trace_Imp(OpcUa_UInt32 level, const char* file, OpcUa_UInt32 line, const char* format,
                     ...) {
  const auto severity =
      (level & OPCUA_TRACE_LEVEL_WARNING) != 0 ? spdlog::level::warn : spdlog::level::debug;
  if (!spdlog::should_log(severity)) return;
  char text[512];  // trace lines are fixed texts with numbers; a longer one is cut
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::string shown(text);
  while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r')) shown.pop_back();
  spdlog::log(severity, "{} ({}:{})", shown, file, line);
}
