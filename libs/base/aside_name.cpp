// SPDX-License-Identifier: MIT
#include "libs/base/aside_name.h"

#include <array>
#include <cstddef>
#include <string>

namespace corvane {

std::filesystem::path AsideName(const std::filesystem::path& file, std::time_t now,
                                const std::function<bool(const std::filesystem::path&)>& is_taken) {
  struct tm parts {};
  gmtime_r(&now, &parts);
  std::array<char, 32> stamp{};
  const std::size_t size = std::strftime(stamp.data(), stamp.size(), "%Y%m%d-%H%M%S", &parts);
  const std::string base = file.string() + ".damaged-" + std::string(stamp.data(), size);
  std::filesystem::path name = base;
  for (int more = 2; is_taken(name); ++more) name = base + "-" + std::to_string(more);
  return name;
}

}  // namespace corvane
