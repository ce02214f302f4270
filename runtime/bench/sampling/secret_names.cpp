// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/secret_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace corvane::bench {
namespace {

bool IsLower(char c) {
  return std::islower(static_cast<unsigned char>(c)) != 0;
}

bool IsLetter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

/// Whether the name ends with PIN or PUK as a word: "PIN", "sim_pin", "simPin", but not "spin".
bool EndsWithPin(std::string_view name, std::string_view lower) {
  constexpr std::string_view kPin = "pin";
  if (!lower.ends_with(kPin) && !lower.ends_with("puk")) return false;
  const std::size_t start = name.size() - kPin.size();
  return start == 0 || !IsLetter(name[start - 1]) ||
         (IsLower(name[start - 1]) && !IsLower(name[start]));
}

}  // namespace

bool IsSecretName(std::string_view name) {
  constexpr std::size_t kLongest = 256;
  std::string lower(name.substr(0, kLongest));
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
  constexpr std::array<std::string_view, 9> kWords{"passw",   "passphrase", "pwd",
                                                   "token",   "secret",     "credential",
                                                   "api_key", "apikey",     "kennwort"};
  return EndsWithPin(name.substr(0, kLongest), lower) ||
         std::ranges::any_of(kWords, [&lower](std::string_view word) {
           return lower.find(word) != std::string::npos;
         });
}

}  // namespace corvane::bench
