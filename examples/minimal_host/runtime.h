// SPDX-License-Identifier: MIT
// What the main program asks of its runtime library.
#pragma once

#include <lua.hpp>
#include <string>
#include <vector>

struct BlockType {
  std::string name;
  lua_CFunction opener;
};

/// The types that add-ins have registered, in this order.
const std::vector<BlockType>& BlockTypes();
