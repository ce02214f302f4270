// SPDX-License-Identifier: MIT
// GET /healthz over the Unix socket of a program. Threads: any.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace corvane::bench {

/// "ok", or in one line why the program is not well. Takes at most `patience`.
/// @throws ClientError when the program does not answer as one of ours does
[[nodiscard]] std::string AskHealth(const std::filesystem::path& socket,
                                    std::chrono::milliseconds patience);

}  // namespace corvane::bench
