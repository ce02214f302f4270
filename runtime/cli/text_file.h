// SPDX-License-Identifier: MIT
// A text file that a user names: a configuration, a scenario.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::cli {

/// A file that cannot be used; what() names the file and the reason.
class TextFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The file's lines without their line feeds and without a UTF-8 byte order mark at the start. The
/// file may also be a pipe or a terminal; it is read to its end. `role`, such as "scenario", says
/// in an error what the file is for.
///
/// Throws TextFileError for a file that cannot be read, contains a NUL and is therefore not text,
/// or has more than kLongestTextFile octets.
[[nodiscard]] std::vector<std::string> ReadLines(const std::string& role, const std::string& path);

inline constexpr std::size_t kLongestTextFile = std::size_t{16} << 20;

}  // namespace corvane::cli
