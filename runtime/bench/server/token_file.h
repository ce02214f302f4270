// SPDX-License-Identifier: MIT
// The token that opens the bench to other machines.
#pragma once

#include <filesystem>
#include <string>

namespace corvane::bench {

/// Least and greatest number of characters of a token.
inline constexpr std::size_t kShortestToken = 16;
inline constexpr std::size_t kLongestToken = 256;

/// Reads the token: the file's only line, of letters, digits and any of ._~+/=-
/// @throws BenchError when the file cannot be read, belongs to another user, can be read or
/// changed by others, or has no such token. The message never has the content.
[[nodiscard]] std::string ReadTokenFile(const std::filesystem::path& file);

}  // namespace corvane::bench
