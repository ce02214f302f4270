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

/// The types, in the order of their registration.
[[nodiscard]] const std::vector<StLibrary>& RegisteredStLibraries();

/// Makes `opener` the one that new Lua states use for this type. @return false if no add-in has
/// registered the type
[[nodiscard]] bool ReplaceStLibrary(const std::string& name, lua_CFunction opener);

/// What this value of a block's variable means, from the add-in; empty if it does not say.
[[nodiscard]] std::string ValueMeaning(const std::string& type, const std::string& variable,
                                       double value);

/// What an add-in says of a block's variable.
struct VariableDescription {
  int direction = 0;    ///< an STDirection; 0: not stated
  std::string meaning;  ///< empty: not stated
};

/// Null if the add-in does not describe the variable.
[[nodiscard]] const VariableDescription* FindVariableDescription(const std::string& type,
                                                                 const std::string& variable);

}  // namespace corvane
