// SPDX-License-Identifier: MIT
// What the fuzz targets require of every input. A violation is a finding, also in a release build.
#pragma once

#include <cstdio>
#include <cstdlib>

/// Prints the caller's place and ends the program if the condition does not hold.
inline void Require(bool condition, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (condition) return;
  std::fprintf(stderr, "%s:%d: what is required here does not hold\n", file, line);
  std::abort();
}
