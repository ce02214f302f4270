// SPDX-License-Identifier: MIT
// Where in a control program a function of ours was called. Threads: the one that runs the Lua
// state.
#pragma once

#include <lua.hpp>

/// Finds the innermost Lua function that is running, past C functions such as pcall; its file is
/// then in `short_src`, its line in `currentline`. @return false if none is running
inline bool FindProgramLine(lua_State* L, lua_Debug* record) {
  for (int level = 0; lua_getstack(L, level, record) != 0; ++level) {
    lua_getinfo(L, "Sl", record);
    if (record->currentline > 0) return true;
  }
  return false;
}
