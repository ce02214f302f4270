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

/// Raises a Lua error: the message with the program's file and line in front, even if the program
/// called through pcall. Objects with destructors must not be alive. @return never
inline int RaiseAtProgramLine(lua_State* L, const char* message) {
  lua_Debug record;
  if (!FindProgramLine(L, &record)) return luaL_error(L, "%s", message);
  lua_pushfstring(L, "%s:%d: %s", record.short_src, record.currentline, message);
  return lua_error(L);
}
