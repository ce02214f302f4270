// SPDX-License-Identifier: MIT
#include "runtime/cli/messages.h"

#include <cstddef>

#include "libs/base/printable.h"
#include "runtime/cli/error_output.h"

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
  WriteError("corvane: " + PrintableMessage(message) + "\n");
}

}  // namespace corvane::cli
