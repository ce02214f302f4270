// SPDX-License-Identifier: MIT
// The name under which a damaged file is kept for people to look at. Threads: any.
#pragma once

#include <ctime>
#include <filesystem>
#include <functional>

namespace corvane {

/// FILE.damaged-YYYYMMDD-HHMMSS (UTC), with -2, -3 ... added while `is_taken` says so.
[[nodiscard]] std::filesystem::path AsideName(
    const std::filesystem::path& file, std::time_t now,
    const std::function<bool(const std::filesystem::path&)>& is_taken);

}  // namespace corvane
