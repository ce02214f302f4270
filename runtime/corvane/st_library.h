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

/// What the add-in says that this value of a block's variable means; empty where it says nothing.
[[nodiscard]] std::string ValueMeaning(const std::string& type, const std::string& variable,
                                       double value);

}  // namespace corvane
