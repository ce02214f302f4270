// SPDX-License-Identifier: MIT
// What the fuzz targets say of every input. A broken promise is a finding, also in a release build.
#pragma once

#include <cstdlib>

inline void Require(bool condition) {
  if (!condition) std::abort();
}
