// SPDX-License-Identifier: MIT
// The host's part of a block.
#include "share/base_lua_fb.h"

#include <stdexcept>

#include "runtime/corvaneshare/live_blocks.h"

namespace {

/// Adds the block at argument 1 to the table of known blocks.
int AddBlock(lua_State* L) {
  corvane::PushTrackedBlocks(L);
  lua_getfield(L, 2, "n");
  const lua_Number number = lua_tonumber(L, 3) + 1;
  lua_pushvalue(L, 1);
  lua_rawseti(L, 2, static_cast<int>(number));
  lua_pushnumber(L, number);
  lua_setfield(L, 2, "n");
  return 0;
}

/// Does so for the block on top, if the runtime tracks blocks. A constructor must not raise a Lua
/// error, so a block for which memory runs out stays unknown.
void Track(lua_State* L) {
  corvane::PushTrackedBlocks(L);
  const bool wanted = lua_istable(L, -1);
  lua_pop(L, 1);
  if (!wanted) return;
  lua_pushcfunction(L, AddBlock);
  lua_pushvalue(L, -2);
  if (lua_pcall(L, 1, 0, 0) != LUA_OK) lua_pop(L, 1);
}

}  // namespace

const char* const LuaFBUtil::CheckErrStrPostfix = "block expected";

BaseLuaFB::BaseLuaFB(lua_State* L, const char* type_name) {
  if (corvane::BlocksRefused(L)) {
    throw std::logic_error("the program has ended, so no more blocks can be created");
  }
  luaL_setmetatable(L, type_name);
  Track(L);
}

BaseLuaFB::~BaseLuaFB() = default;

int CheckIndexProlog(lua_State* L, const char* key, const BaseLuaFB* /*block*/) {
  // Called at every access, so the first letter is compared before calling a function.
  if (key[0] != 'E' || std::strcmp(key, "EnO") != 0) return 0;
  lua_pushboolean(L, 1);
  return 1;
}
