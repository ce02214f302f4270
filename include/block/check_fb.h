// SPDX-License-Identifier: MIT
// How a function that Lua calls gets at its block, and what becomes of a C++ exception in it.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdio>
#include <exception>
#include <lua.hpp>

#include "block/known_metatable.h"
#include "share/base_lua_fb.h"

/// Per block class: the record with its names, which DEFINE_FUNCTION_BLOCK creates.
template <class T>
const LuaFBUtil& FBUtil();

/// Calls `body` and returns its result; a std::exception becomes a Lua error with its what().
template <class Body>
int Guarded(lua_State* L, const Body& body) {
  char what[256];  // plain memory: raising the error skips destructors where Lua is compiled as C
  try {
    return body();
  } catch (const std::exception& error) {
    std::snprintf(what, sizeof what, "%s", error.what());
  }
  return luaL_error(L, "%s", what);
}

/// The block at argument 1; a Lua argument error if it is anything else.
template <class T>
T* CheckFB(lua_State* L) {
  void* memory = known_metatable<T>.IsOfArgument1(L) ? lua_touserdata(L, 1) : nullptr;
  if (memory != nullptr) return static_cast<T*>(memory);  // null: a table with this metatable
  memory = luaL_checkudata(L, 1, FBUtil<T>().typeName);
  if (memory == nullptr) luaL_argerror(L, 1, FBUtil<T>().errorText);
  return static_cast<T*>(memory);
}
