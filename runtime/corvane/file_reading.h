// SPDX-License-Identifier: MIT
// Reading a small file whole, as a value. Threads: any.
#pragma once

#include <cstddef>
#include <string>

namespace corvane {

/// The largest file that is read, in octets.
inline constexpr std::size_t kLargestValueFile = std::size_t{64} * 1024;

/// What is in a file now.
struct FileContent {
  std::string text;   ///< without the last line feed
  std::string error;  ///< what is wrong, without the path; empty: nothing
};

/// Reads the file. A FIFO, a device, a folder and a file that is too large are errors; devices are
/// not even opened, since that changes the state of some. It may take as long as the file system
/// or the driver behind a file of /sys likes.
[[nodiscard]] FileContent ReadValueFile(const std::string& path);

}  // namespace corvane
