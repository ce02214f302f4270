// SPDX-License-Identifier: MIT
// The block types that add-ins have registered, for the runtime's own use.
// Threads: filled while add-ins load, before any program runs; read-only afterwards.
#pragma once

#include <string>
#include <vector>

#include "corvane/st_library.h"

namespace corvane {

struct StLibrary {
  std::string name;
  lua_CFunction opener;
};

/// In the order of their registration.
[[nodiscard]] const std::vector<StLibrary>& RegisteredStLibraries();

}  // namespace corvane
