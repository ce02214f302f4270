// SPDX-License-Identifier: MIT
// What of a block survives a restart, as a runtime that keeps it asks for it: the metamethods
// `__retained` and `__restore`, a template over the block class. Values are kept as Lua values.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

#include "block/check_fb.h"
#include "block/declaration.h"
#include "share/lua_value.h"

/// `__retained(fb)`: a table with the value of each declared variable by its name, also of those
/// that programs do not see; without secrets.
template <class T>
int RetainedFB(lua_State* L) {
  CheckFB<T>(L);
  lua_settop(L, 1);
  lua_newtable(L);
  for (const FBMetaEntry* row = T::GetMetaTable(); row->name != nullptr; ++row) {
    if (row->secret) continue;
    // Again for each value: a finalizer that ran meanwhile may have called __gc by hand.
    CheckFB<T>(L)->PushDeclared(L, *row);
    lua_setfield(L, 2, row->name);
  }
  return 1;
}

/// Whether a variable of this elementary type yields Lua values of the type at `index`.
inline bool HasLuaTypeOf(lua_State* L, int index, const FBMetaEntry& row) {
  switch (OpcUa_VariantHlp::GetUaTypeFromName(row.type)) {
    case OpcUaType_Boolean: return lua_type(L, index) == LUA_TBOOLEAN;
    case OpcUaType_String: return lua_type(L, index) == LUA_TSTRING;
    default: return lua_type(L, index) == LUA_TNUMBER;
  }
}

/// Argument 1: the block, 2: the row of a variable, 3: a value of its Lua type. Raises a Lua error
/// if that is out of range.
template <class T>
int StoreRetained(lua_State* L) {
  const auto& row = *static_cast<const FBMetaEntry*>(lua_touserdata(L, 2));
  return CheckFB<T>(L)->StoreDeclared(L, row);
}

/// `__restore(fb, values)`: gives the variables the values that an earlier `__retained` returned,
/// and then calls the block's Restored(). A variable without a value in the table keeps its own.
/// @return a sequence of the names whose values have another type now, or are out of range; these
///   variables keep their own, too
template <class T>
int RestoreFB(lua_State* L) {
  CheckFB<T>(L);
  luaL_checktype(L, 2, LUA_TTABLE);
  lua_settop(L, 2);
  lua_newtable(L);
  for (const FBMetaEntry* row = T::GetMetaTable(); row->name != nullptr; ++row) {
    lua_settop(L, 3);
    lua_getfield(L, 2, row->name);
    if (row->secret || lua_isnil(L, 4)) continue;
    bool stored = HasLuaTypeOf(L, 4, *row);
    if (stored) {
      lua_pushcfunction(L, StoreRetained<T>);
      lua_pushvalue(L, 1);
      lua_pushlightuserdata(L, const_cast<FBMetaEntry*>(row));
      lua_pushvalue(L, 4);
      stored = lua_pcall(L, 3, 0, 0) == LUA_OK;
    }
    if (stored) continue;
    lua_pushstring(L, row->name);
    lua_rawseti(L, 3, static_cast<int>(lua_rawlen(L, 3)) + 1);
  }
  lua_settop(L, 3);
  T* block = CheckFB<T>(L);
  return Guarded(L, [=] {
    block->Restored();
    return 1;
  });
}
