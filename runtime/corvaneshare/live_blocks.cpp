// SPDX-License-Identifier: MIT
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane {
namespace {

// Their addresses are keys in the registry.
const char kBlocks = 0;
const char kRefused = 0;

int SetRefused(lua_State* L) {
  lua_pushboolean(L, 1);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &kRefused);
  return 0;
}

}  // namespace

void TrackBlocks(lua_State* L) {
  lua_newtable(L);
  lua_pushnumber(L, 0);
  lua_setfield(L, -2, "n");
  // Weak values are removed before a finalizer runs, so every block in the table is complete.
  lua_createtable(L, 0, 1);
  lua_pushliteral(L, "v");
  lua_setfield(L, -2, "__mode");
  lua_setmetatable(L, -2);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &kBlocks);
}

void PushTrackedBlocks(lua_State* L) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, &kBlocks);
}

void RefuseBlocks(lua_State* L) {
  // At the end of a program, no caller is in protected mode. It fails only without memory.
  lua_pushcfunction(L, SetRefused);
  if (lua_pcall(L, 0, 0, 0) != LUA_OK) lua_pop(L, 1);
}

bool BlocksRefused(lua_State* L) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, &kRefused);
  const bool refused = lua_toboolean(L, -1) != 0;
  lua_pop(L, 1);
  return refused;
}

}  // namespace corvane
