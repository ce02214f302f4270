// SPDX-License-Identifier: MIT
#include "runtime/corvane/lua_environment.h"

#include <string>
#include <string_view>

#include "runtime/corvane/error_advice.h"
#include "runtime/corvane/os_execute.h"
#include "runtime/corvane/st_library.h"
#include "runtime/corvaneshare/elementary_types.h"
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane {
namespace {

/// Message handler of ProtectedCall: any error value becomes a text followed by the traceback.
int AddTraceback(lua_State* L) {
  if (lua_touserdata(L, 1) == &kExitRequest) return 1;
  const char* message = lua_tostring(L, 1);
  if (message == nullptr && luaL_callmeta(L, 1, "__tostring") == 0) {
    lua_pushfstring(L, "(error object is a %s)", luaL_typename(L, 1));
  }
  if (message == nullptr) message = lua_tostring(L, -1);
  if (const std::string advice = ErrorAdvice(L, message != nullptr ? message : "");
      !advice.empty()) {
    message = lua_pushfstring(L, "%s%s", message, advice.c_str());
  }
  luaL_traceback(L, L, message, 1);
  return 1;
}

/// Pushes the field `key` of the table at `table`; a Lua error if it has another type. It is
/// fetched once: a metamethod of the program might return something else the next time.
void PushField(lua_State* L, int table, const char* key, int type, const char* owner) {
  lua_getfield(L, table, key);
  if (lua_type(L, -1) == type) return;
  luaL_error(L, "metadata of %s: the field %s must be a %s, not a %s", owner, key,
             lua_typename(L, type), luaL_typename(L, -1));
}

/// FBMetadata(t): checks the shape of a block type's metadata and returns it.
int FBMetadata(lua_State* L) {
  luaL_checktype(L, 1, LUA_TTABLE);
  lua_settop(L, 1);
  PushField(L, 1, "Name", LUA_TSTRING, "a block type");
  const char* block = lua_tostring(L, 2);
  PushField(L, 1, "Hash", LUA_TNUMBER, block);
  PushField(L, 1, "Vars", LUA_TTABLE, block);
  constexpr int kVars = 4;
  constexpr int kVariable = 6;  // after its name
  for (lua_pushnil(L); lua_next(L, kVars) != 0; lua_settop(L, kVariable - 1)) {
    if (lua_type(L, -2) != LUA_TSTRING || lua_type(L, -1) != LUA_TTABLE) {
      luaL_error(L, "metadata of %s: Vars must map names to tables", block);
    }
    const char* variable = lua_tostring(L, -2);
    PushField(L, kVariable, "Hash", LUA_TNUMBER, variable);
    PushField(L, kVariable, "Type", LUA_TTABLE, variable);
    PushField(L, kVariable + 2, "Name", LUA_TSTRING, variable);
    PushField(L, kVariable, "Retain", LUA_TBOOLEAN, variable);
  }
  lua_settop(L, 1);
  return 1;
}

/// Sets the globals TYPES (`Elementary`: one table { Name = ... } per elementary type;
/// `StandardFB`: filled by the block types) and FBMetadata.
void OpenTypes(lua_State* L) {
  lua_createtable(L, 0, 2);
  lua_createtable(L, 0, static_cast<int>(kElementaryTypes.size()));
  for (const ElementaryType& type : kElementaryTypes) {
    lua_createtable(L, 0, 1);
    lua_pushstring(L, type.name);
    lua_setfield(L, -2, "Name");
    lua_setfield(L, -2, type.name);
  }
  lua_setfield(L, -2, "Elementary");
  lua_newtable(L);
  lua_setfield(L, -2, "StandardFB");
  lua_setglobal(L, "TYPES");
  lua_pushcfunction(L, FBMetadata);
  lua_setglobal(L, "FBMetadata");
}

/// Gives programs a copy of a block type's metatable instead of the original. Without its __gc, a
/// block's memory would be freed while the modem port driver, or the block's own thread, still uses
/// it.
void HideMetatable(lua_State* L, const char* type_name) {
  luaL_getmetatable(L, type_name);
  if (lua_istable(L, -1)) {
    const int metatable = lua_gettop(L);
    lua_newtable(L);
    for (lua_pushnil(L); lua_next(L, metatable) != 0;) {
      lua_pushvalue(L, -2);
      lua_insert(L, -2);
      lua_rawset(L, metatable + 1);
    }
    lua_pushliteral(L, "__metatable");  // what getmetatable() returns
    lua_insert(L, -2);
    lua_rawset(L, metatable);
  }
  lua_settop(L, 0);
}

/// Runs in protected mode, so that a failing allocation is an error and not an abort.
int OpenEverything(lua_State* L) {
  luaL_openlibs(L);
  lua_getglobal(L, "os");
  lua_pushcfunction(L, ExecuteCommand);
  lua_setfield(L, -2, "execute");
  lua_settop(L, 0);
  OpenTypes(L);
  for (const StLibrary& library : RegisteredStLibraries()) {
    if (library.opener(L) < 0) {
      return luaL_error(L, "block type %s cannot be opened; the log says why",
                        library.name.c_str());
    }
    lua_settop(L, 0);
    HideMetatable(L, library.name.c_str());
  }
  return 0;
}

}  // namespace

const char kExitRequest = 0;

bool FinalizerError::LostItsValue() const {
  return std::string_view(what()).ends_with("(no message)");
}

void ProtectedCall(lua_State* L, int arguments, int results) {
  const int handler = lua_gettop(L) - arguments;
  lua_pushcfunction(L, AddTraceback);
  lua_insert(L, handler);
  const int status = lua_pcall(L, arguments, results, handler);
  lua_remove(L, handler);
  if (status == LUA_OK) return;
  if (lua_touserdata(L, -1) == &kExitRequest) {
    lua_pop(L, 1);
    throw ExitRequest();
  }
  const char* text = lua_tostring(L, -1);
  const std::string message(text != nullptr ? text : "unknown error");
  lua_pop(L, 1);
  if (status == LUA_ERRGCMM) throw FinalizerError(message);
  throw LuaError(message);
}

void LuaEnvironment::Close::operator()(lua_State* L) const {
  RefuseBlocks(L);
  lua_close(L);
}

LuaEnvironment::LuaEnvironment() : state_(luaL_newstate()) {
  if (state_ == nullptr) throw LuaError("out of memory for a Lua state");
  lua_pushcfunction(state_.get(), OpenEverything);
  ProtectedCall(state_.get(), 0, 0);
}

}  // namespace corvane
