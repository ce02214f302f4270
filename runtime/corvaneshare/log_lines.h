// SPDX-License-Identifier: MIT
// Writes texts from outside to the runtime's log. Threads: any.
#pragma once

#include <spdlog/common.h>

#include <string_view>

namespace corvane {

/// Logs each line of `text`; line ends at its end are dropped. Control characters other than tabs
/// are escaped (Printable): a text from outside (an SMS, a server's reply) must not forge log lines
/// or terminal commands.
void LogLines(spdlog::level::level_enum level, std::string_view text);

}  // namespace corvane
