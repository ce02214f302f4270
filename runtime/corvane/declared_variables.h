// SPDX-License-Identifier: MIT
// The variables of a block type, as its metadata declares them in a Lua state.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>
#include <string>
#include <vector>

namespace corvane {

struct DeclaredVariable {
  int position = 0;
  std::string name;
  std::string type;  ///< IEC 61131-3 elementary type
};

/// What TYPES.StandardFB says about a type, in the order of the declaration; nothing if the program
/// has overwritten it. Raises a Lua error when memory runs out.
[[nodiscard]] std::vector<DeclaredVariable> DeclaredVariables(lua_State* L,
                                                              const std::string& type);

}  // namespace corvane
