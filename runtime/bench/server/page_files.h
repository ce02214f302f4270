// SPDX-License-Identifier: MIT
// The files of the page, which are built into the program.
#pragma once

#include <span>
#include <string_view>

namespace corvane::bench {

struct PageFile {
  std::string_view path;     ///< "/index.html"
  std::string_view content;  ///< its octets
  std::string_view digest;   ///< of the content: changes with it
};

[[nodiscard]] std::span<const PageFile> PageFiles();

/// The file that a browser gets for this path; "/" is "/index.html". Null: there is none.
[[nodiscard]] const PageFile* FindPageFile(std::string_view path);

/// By the end of its path: "text/html; charset=utf-8".
[[nodiscard]] std::string_view MediaType(std::string_view path);

}  // namespace corvane::bench
