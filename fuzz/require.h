// SPDX-License-Identifier: MIT
// What the fuzz targets require of every input. A violation is a finding, also in a release build.
#pragma once

#include <cstdlib>

inline void Require(bool condition) {
  if (!condition) std::abort();
}
