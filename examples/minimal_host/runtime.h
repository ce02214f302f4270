// SPDX-License-Identifier: MIT
// What the main program needs from its runtime library.
#pragma once

#include <lua.hpp>
#include <string>
#include <vector>

struct BlockType {
  std::string name;
  lua_CFunction opener;
};

/// The types that add-ins have registered, in the order of their registration.
const std::vector<BlockType>& BlockTypes();
