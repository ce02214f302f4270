// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/driver_reply.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>

std::optional<int> CmsErrorNumber(std::string_view answer) {
  constexpr std::string_view kPrefix = "+CMS ERROR: ";
  if (answer.substr(0, kPrefix.size()) != kPrefix) return std::nullopt;
  const std::string rest(answer.substr(kPrefix.size()));
  const long long number = std::strtoll(rest.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(number, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}
