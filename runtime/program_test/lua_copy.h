// SPDX-License-Identifier: MIT
// Values that go from one Lua state to another: from a test to its program, and back.
// Threads: the one that runs both states.
#pragma once

#include <lua.hpp>
#include <nlohmann/json.hpp>

namespace corvane::program_test {

/// Pushes a copy of the value at `index` of `from` onto `to`. Tables are copied whole; functions,
/// blocks and tables that contain themselves raise a Lua error in `caller`: the one of the two that
/// is in protected mode.
void CopyLuaValue(lua_State* from, int index, lua_State* to, lua_State* caller);

/// Pushes a value of our own: objects and arrays as tables.
void PushJson(lua_State* L, const nlohmann::json& value);

}  // namespace corvane::program_test
