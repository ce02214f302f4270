// SPDX-License-Identifier: MIT
// The host's part of a block.
#include "share/base_lua_fb.h"

const char* const LuaFBUtil::CheckErrStrPostfix = "block expected";

BaseLuaFB::BaseLuaFB(lua_State* L, const char* type_name) {
  luaL_setmetatable(L, type_name);
}

BaseLuaFB::~BaseLuaFB() = default;

int CheckIndexProlog(lua_State* L, const char* key, const BaseLuaFB* /*block*/) {
  if (std::strcmp(key, "EnO") != 0) return 0;
  lua_pushboolean(L, 1);
  return 1;
}
