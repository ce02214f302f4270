// SPDX-License-Identifier: MIT
#include "runtime/program_test/lua_copy.h"

#include <string>

namespace corvane::program_test {
namespace {

constexpr int kDeepest = 50;

void Copy(lua_State* from, int index, lua_State* to, lua_State* caller, int depth) {
  if (depth > kDeepest) {
    luaL_error(caller,
               "a table that contains itself, or is deeper than %d levels, cannot be copied",
               kDeepest);
  }
  if (lua_checkstack(from, 4) == 0 || lua_checkstack(to, 4) == 0) {
    luaL_error(caller, "out of memory for a copy");
  }
  switch (lua_type(from, index)) {
    case LUA_TNIL: lua_pushnil(to); return;
    case LUA_TBOOLEAN: lua_pushboolean(to, lua_toboolean(from, index)); return;
    case LUA_TNUMBER: lua_pushnumber(to, lua_tonumber(from, index)); return;
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* const text = lua_tolstring(from, index, &length);
      lua_pushlstring(to, text, length);
      return;
    }
    case LUA_TTABLE: break;
    default:
      luaL_error(caller, "a %s cannot be copied; read its fields one by one",
                 lua_type(from, index) == LUA_TUSERDATA ? "block" : luaL_typename(from, index));
  }
  lua_newtable(to);
  const int table = lua_absindex(from, index);
  for (lua_pushnil(from); lua_next(from, table) != 0; lua_pop(from, 1)) {
    Copy(from, lua_gettop(from) - 1, to, caller, depth + 1);
    Copy(from, lua_gettop(from), to, caller, depth + 1);
    lua_rawset(to, -3);
  }
}

}  // namespace

void CopyLuaValue(lua_State* from, int index, lua_State* to, lua_State* caller) {
  Copy(from, lua_absindex(from, index), to, caller, 0);
}

void PushJson(lua_State* L, const nlohmann::json& value) {
  luaL_checkstack(L, 4, "pushing a value");
  if (value.is_boolean()) {
    lua_pushboolean(L, value.get<bool>() ? 1 : 0);
  } else if (value.is_number()) {
    lua_pushnumber(L, value.get<double>());
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    lua_pushlstring(L, text.data(), text.size());
  } else if (value.is_structured()) {
    lua_newtable(L);
    int number = 0;
    for (const auto& [name, item] : value.items()) {
      PushJson(L, item);
      if (value.is_array()) {
        lua_rawseti(L, -2, ++number);
      } else {
        lua_setfield(L, -2, name.c_str());
      }
    }
  } else {
    lua_pushnil(L);
  }
}

}  // namespace corvane::program_test
