// SPDX-License-Identifier: MIT
#include "runtime/cli/messages.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdio>

#include "libs/base/printable.h"

namespace corvane::cli {
namespace {

constexpr std::size_t kLongestBegin = 1000;
constexpr std::size_t kLongestEnd = 200;

}  // namespace

std::string PrintableMessage(std::string_view message) {
  if (message.size() <= kLongestBegin + kLongestEnd) return Printable(message);
  return Printable(message.substr(0, kLongestBegin)) + " ... " +
         Printable(message.substr(message.size() - kLongestEnd));
}

void PrintError(std::string_view message) {
  fmt::print(stderr, "corvane: {}\n", PrintableMessage(message));
}

}  // namespace corvane::cli
