// SPDX-License-Identifier: MIT
// Where things are on the Lua stack of the sampler's functions.
#pragma once

#include <lua.hpp>

namespace corvane::bench {

// Indices of the stack.
inline constexpr int kSampler = 1;
inline constexpr int kArgument = 2;
inline constexpr int kTables = 3;
inline constexpr int kObjectTable = 4;
inline constexpr int kClassTables = 5;
inline constexpr int kObject = 6;  ///< the table or function that is looked at
inline constexpr int kKey = 7;     ///< of a field
inline constexpr int kValue = 8;

// Indices of the table in the registry.
inline constexpr int kObjects = 1;
inline constexpr int kClasses = 2;
inline constexpr int kThread = 3;
inline constexpr int kResumeKey = 4;

/// After the two arguments.
inline void PushSamplerTables(lua_State* L) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, lua_touserdata(L, kSampler));
  lua_rawgeti(L, kTables, kObjects);
  lua_rawgeti(L, kTables, kClasses);
}

}  // namespace corvane::bench
