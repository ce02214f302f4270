// SPDX-License-Identifier: MIT
#include "runtime/cli/text_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <string_view>
#include <system_error>

namespace corvane::cli {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string ReadText(const std::string& role, const std::string& path) {
  std::ifstream file(path);
  std::string text;
  std::array<char, 65536> block{};
  while (file.read(block.data(), block.size()) || file.gcount() > 0) {
    const std::string_view read(block.data(), static_cast<std::size_t>(file.gcount()));
    if (read.find('\0') != std::string_view::npos) {
      throw TextFileError(fmt::format("{} {} is not a text file", role, path));
    }
    text += read;
    if (text.size() > kLongestTextFile) {  // it may be endless
      throw TextFileError(
          fmt::format("{} {} is longer than {} MiB", role, path, kLongestTextFile >> 20));
    }
  }
  if (!file.eof()) {  // missing, forbidden, a folder
    throw TextFileError(fmt::format("{} {} cannot be read: {}", role, path,
                                    std::generic_category().message(errno)));
  }
  return text;
}

}  // namespace

std::vector<std::string> ReadLines(const std::string& role, const std::string& path) {
  std::string text = ReadText(role, path);
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

}  // namespace corvane::cli
