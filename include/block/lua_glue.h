// SPDX-License-Identifier: MIT
// The functions through which Lua reaches a block, and the tables that publish them. Everything is
// a template over the block class; DEFINE_FUNCTION_BLOCK gives a class its own set.
// No C++ exception leaves a function here: a std::exception becomes a Lua error, raised when no C++
// object is alive any more. Threads: the one that runs the Lua state.
#pragma once

#include <cstdio>
#include <exception>
#include <new>
#include <type_traits>
#include <vector>

#include "block/base_fb.h"
#include "block/check_fb.h"
#include "block/export.h"
#include "block/known_metatable.h"
#include "block/retained.h"
#include "corvane/st_library.h"

/// Converts the variable name at `index` (negative) of a call with at least `arguments` arguments
/// to a string. A number is a name, too; anything else is a Lua argument error.
/// @return the block at argument 1, checked
template <class T>
T* CheckFBAndName(lua_State* L, int index, int arguments) {
  T* block = CheckFB<T>(L);
  const int count = lua_gettop(L);
  if (count < arguments) {
    luaL_argerror(
        L, count + 1,
        count < 2 ? "variable name expected, got no value" : "value expected, got no value");
  }
  switch (lua_type(L, index)) {
    case LUA_TSTRING: return block;
    case LUA_TNUMBER:
      lua_tolstring(L, index, nullptr);
      return CheckFB<T>(L);  // a finalizer that ran meanwhile may have called __gc by hand
    default: break;
  }
  const int position = lua_absindex(L, index);
  luaL_argerror(L, position,
                lua_pushfstring(L, "variable name expected, got %s", luaL_typename(L, position)));
  return nullptr;  // not reached
}

/// Lua aligns userdata for these types and no others.
union LuaAlignment {
  double number;
  void* pointer;
  long integer;
};

/// Constructs the block in the userdata on top of the stack. @return false if it threw; `what` then
/// has the message
template <class T>
bool ConstructFB(lua_State* L, void* memory, char* what, std::size_t size) {
  static_assert(alignof(T) <= alignof(LuaAlignment));
  try {
    const std::string type_name(FBUtil<T>().typeName);
    new (memory) T(L, type_name);
    return true;
  } catch (const std::exception& error) {
    std::snprintf(what, size, "%s", error.what());
    return false;
  }
}

/// Raises a Lua error if the table of initial values is the block type itself, as `TYPE:new{...}`
/// passes it. No variable can be a function, so no other table has this one.
template <class T>
void RefuseTheTypeItself(lua_State* L) {
  lua_pushstring(L, "new");
  lua_rawget(L, 1);
  if (lua_type(L, -1) == LUA_TFUNCTION) {
    const char* const type = FBUtil<T>().typeName;
    luaL_error(L, "write %s.new { ... }, with a dot, not a colon", type);
  }
  lua_settop(L, 1);
}

/// Module function `new([table])`: a new block with the table's pairs as initial values.
template <class T>
int NewFB(lua_State* L) {
  lua_settop(L, 1);
  if (!lua_isnil(L, 1)) {
    luaL_checktype(L, 1, LUA_TTABLE);
    RefuseTheTypeItself<T>(L);
  }
  void* memory = lua_newuserdata(L, sizeof(T));
  char what[256];
  if (!ConstructFB<T>(L, memory, what, sizeof what)) {
    // The base may have attached the metatable already; its __gc must not see what was not built.
    lua_pushnil(L);
    lua_setmetatable(L, 2);
    return luaL_error(L, "%s", what);
  }
  Guarded(L, [=] { return static_cast<T*>(memory)->Init(L); });
  return 1;
}

/// `__call` and module function `call`.
template <class T>
int Call(lua_State* L) {
  T* block = CheckFB<T>(L);
  if constexpr (requires { block->NoteCall(); }) block->NoteCall();
  return Guarded(L, [=] { return block->call(L); });
}

/// `__index` and module function `get`.
template <class T>
int Get(lua_State* L) {
  T* block = CheckFBAndName<T>(L, -1, 2);
  return Guarded(L, [=] { return block->getField(L); });
}

/// `__newindex` and module function `set`.
template <class T>
int Set(lua_State* L) {
  T* block = CheckFBAndName<T>(L, -2, 3);
  if constexpr (requires { block->NoteInput(L); }) block->NoteInput(L);
  return Guarded(L, [=] { return block->setField(L); });
}

/// `__gc`: the destructor; the memory stays Lua's. The metatable is removed first, so that a
/// program which calls this by hand has no block left to use or to destroy again.
template <class T>
int GC(lua_State* L) {
  T* block = CheckFB<T>(L);
  lua_settop(L, 1);
  lua_pushnil(L);
  lua_setmetatable(L, 1);
  block->~T();
  return 1;
}

/// Opener of a block type: leaves its metatable and its module table on the stack and enters its
/// metadata into TYPES. @return 1, or -1 when the metadata failed, which is logged
template <class T>
int OpenFB(lua_State* L, const luaL_Reg* metatable, const luaL_Reg* module) {
  const char* type_name = FBUtil<T>().typeName;
  luaL_newmetatable(L, type_name);
  known_metatable<T>.Set(L);
  luaL_openlib(L, nullptr, metatable, 0);
  luaL_openlib(L, type_name, module, 0);
  return Guarded(L, [=] {
    // Loading and running report errors by their result, so no Lua error skips the text's
    // destructor.
    const std::string metadata = T::MakeMetadata(type_name);
    const bool failed =
        luaL_loadbufferx(L, metadata.data(), metadata.length(), type_name, nullptr) != LUA_OK ||
        lua_pcallk(L, 0, LUA_MULTRET, 0, 0, nullptr) != LUA_OK;
    if (!failed) return 1;
    logMsg("%s\n", lua_tostring(L, -1));
    lua_settop(L, -2);
    return -1;
  });
}

/// Passes what the class says about its values and variables to a runtime that wants to know: the
/// meanings of values in `static const STValueMeaning* GetMeaningTable()`, if it has that, and for
/// a strict block the directions and meanings in its declaration table.
template <class T>
void DescribeFB(const char* type_name) {
  if constexpr (requires { T::GetMeaningTable(); }) {
    if (DescribeExternalSTLibValues != nullptr) {
      DescribeExternalSTLibValues(type_name, T::GetMeaningTable());
    }
  }
  if constexpr (requires { T::kStatesDirections; }) {
    if (DescribeExternalSTLibVariables == nullptr) return;
    std::vector<STVariable> variables;
    for (const FBMetaEntry* row = T::GetMetaTable(); row->name != nullptr; ++row) {
      if (IsHidden(*row)) continue;
      const int direction = row->direction == FBDirection::kInput    ? kSTInput
                            : row->direction == FBDirection::kOutput ? kSTOutput
                                                                     : 0;
      variables.push_back({row->name, direction, row->meaning});
    }
    variables.push_back({});
    DescribeExternalSTLibVariables(type_name, variables.data());
  }
}

/// Declares the record and the exported functions of a block class.
#define DECLARE_FUNCTION_BLOCK(Class)                \
  template <>                                        \
  const LuaFBUtil& FBUtil<Class>();                  \
  CORVANE_FB_EXPORT int luaopen_##Class(lua_State*); \
  CORVANE_FB_EXPORT int RegisterSTLibs##Class();

/// Defines the record, the tables and the exported functions of a block class.
#define DEFINE_FUNCTION_BLOCK(Class, type_name)                                                    \
  static LuaFBUtil FBUtil_##Class(type_name);                                                      \
  template <>                                                                                      \
  const LuaFBUtil& FBUtil<Class>() {                                                               \
    return FBUtil_##Class;                                                                         \
  }                                                                                                \
  static const luaL_Reg Class##_Lib_m[] = {                                                        \
      {"__index", Get<Class>}, {"__newindex", Set<Class>},        {"__call", Call<Class>},         \
      {"__gc", GC<Class>},     {"__retained", RetainedFB<Class>}, {"__restore", RestoreFB<Class>}, \
      {nullptr, nullptr}};                                                                         \
  static const luaL_Reg Class##_Lib_f[] = {{"new", NewFB<Class>},                                  \
                                           {"get", Get<Class>},                                    \
                                           {"set", Set<Class>},                                    \
                                           {"call", Call<Class>},                                  \
                                           {nullptr, nullptr}};                                    \
  int luaopen_##Class(lua_State* L) {                                                              \
    return OpenFB<Class>(L, Class##_Lib_m, Class##_Lib_f);                                         \
  }                                                                                                \
  int RegisterSTLibs##Class() {                                                                    \
    RegisterExternalSTLib(type_name, luaopen_##Class);                                             \
    DescribeFB<Class>(type_name);                                                                  \
    return 0;                                                                                      \
  }
