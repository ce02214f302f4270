// SPDX-License-Identifier: MIT
// Kept values, filled into those of the program. Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace corvane {

/// Fills the kept table into the one on top of the stack, without regard to metatables: keys that
/// it lacks are added, values of the same type replaced, tables filled in turn. A value of another
/// type stays as it is.
/// @param refused gets the path of each value that stayed, from `name` on
void FillTable(lua_State* L, const nlohmann::json& kept, const std::string& name,
               std::vector<std::string>& refused);

/// Gives the block at `index` its kept variables through its metamethod __restore.
/// @param refused as above
void FillBlock(lua_State* L, int index, const nlohmann::json& variables, const std::string& name,
               std::vector<std::string>& refused);

}  // namespace corvane
