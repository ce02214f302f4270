// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "libs/base/printable.h"
#include "libs/gsm/network_errors.h"

namespace corvane {
namespace {

constexpr std::string_view kCmsPrefix = "+CMS ERROR: ";
constexpr std::string_view kCmePrefix = "+CME ERROR: ";

const gsm::NetworkError* Find(bool cms, std::string_view digits) {
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return nullptr;
  return cms ? gsm::FindCmsError(number) : gsm::FindCmeError(number);
}

}  // namespace

std::string DescribeRefusal(std::string_view answer) {
  const std::size_t begin = std::min(answer.find(kCmsPrefix), answer.find(kCmePrefix));
  if (begin == answer.npos) return {};
  const std::string_view line = answer.substr(begin, answer.find_first_of("\r\n", begin) - begin);
  const bool cms = line.starts_with(kCmsPrefix);
  const gsm::NetworkError* const known = Find(cms, line.substr(kCmsPrefix.size()));
  return known == nullptr ? Printable(line) : fmt::format("{} ({})", line, known->meaning);
}

}  // namespace corvane
