// SPDX-License-Identifier: MIT
// The key that makes a message one of its kind, as blocks take it. Pure functions.
#pragma once

#include <cstddef>
#include <string>

#include "libs/base/printable.h"

namespace messages {

/// Whether a key can be kept, and shown in one line.
inline bool IsKey(const std::string& key) {
  constexpr std::size_t kLongest = 200;
  return key.size() <= kLongest && corvane::Printable(key) == key;
}

/// What to say if it cannot.
inline constexpr char kKeyProblem[] =
    "Key must be one line of UTF-8 with at most 200 octets; shorten it";

}  // namespace messages
