// SPDX-License-Identifier: MIT
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane {
namespace {

const char kBlocks = 0;  // its address is the table's key in the registry

}  // namespace

void TrackBlocks(lua_State* L) {
  lua_newtable(L);
  lua_pushnumber(L, 0);
  lua_setfield(L, -2, "n");
  // Weak values go before a finalizer runs, so what is found is whole.
  lua_createtable(L, 0, 1);
  lua_pushliteral(L, "v");
  lua_setfield(L, -2, "__mode");
  lua_setmetatable(L, -2);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &kBlocks);
}

void PushTrackedBlocks(lua_State* L) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, &kBlocks);
}

}  // namespace corvane
