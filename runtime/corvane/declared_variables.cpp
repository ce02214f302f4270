// SPDX-License-Identifier: MIT
#include "runtime/corvane/declared_variables.h"

#include <algorithm>
#include <utility>

namespace corvane {
namespace {

std::string TextField(lua_State* L, const char* key) {
  lua_getfield(L, -1, key);
  const char* text = lua_tostring(L, -1);
  std::string result = text == nullptr ? "" : text;
  lua_pop(L, 1);
  return result;
}

/// Replaces the table on top with its field `key`, or with an empty table.
void Descend(lua_State* L, const char* key) {
  lua_getfield(L, -1, key);
  if (!lua_istable(L, -1)) {
    lua_pop(L, 1);
    lua_newtable(L);
  }
  lua_remove(L, -2);
}

}  // namespace

std::vector<DeclaredVariable> DeclaredVariables(lua_State* L, const std::string& type) {
  std::vector<DeclaredVariable> declarations;
  lua_pushglobaltable(L);
  for (const char* key : {"TYPES", "StandardFB", type.c_str(), "Vars"}) Descend(L, key);
  const int variables = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, variables) != 0; lua_pop(L, 1)) {
    if (lua_type(L, -2) != LUA_TSTRING || !lua_istable(L, -1)) continue;
    DeclaredVariable declaration{0, lua_tostring(L, -2), ""};
    lua_getfield(L, -1, "Hash");
    declaration.position = static_cast<int>(lua_tointeger(L, -1));
    lua_pop(L, 1);
    lua_pushvalue(L, -1);
    Descend(L, "Type");
    declaration.type = TextField(L, "Name");
    lua_pop(L, 1);
    declarations.push_back(std::move(declaration));
  }
  lua_pop(L, 1);
  std::sort(declarations.begin(), declarations.end(),
            [](const auto& a, const auto& b) { return a.position < b.position; });
  return declarations;
}

}  // namespace corvane
