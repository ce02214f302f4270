// SPDX-License-Identifier: MIT
// minimal_host ADDIN PROGRAM CYCLES: loads the add-in and runs CYCLES cycles of a control program.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <lua.hpp>

#include "examples/minimal_host/runtime.h"

namespace {

constexpr const char* kTypes = R"(
  TYPES = { StandardFB = {}, Elementary = {} }
  for _, name in ipairs { "BOOL", "INT", "DINT", "LREAL", "STRING", "DATE_AND_TIME" } do
    TYPES.Elementary[name] = { Name = name }
  end
  function FBMetadata(type) return type end
)";

/// Prepares a new Lua state for openers and control programs.
int Prepare(lua_State* L) {
  luaL_openlibs(L);
  if (luaL_dostring(L, kTypes)) return lua_error(L);
  for (const BlockType& type : BlockTypes()) {
    if (type.opener(L) < 0) return luaL_error(L, "%s cannot be opened", type.name.c_str());
    lua_settop(L, 0);  // an opener leaves tables on the stack
  }
  return 0;
}

int LoadProgram(lua_State* L) {
  if (luaL_loadfile(L, lua_tostring(L, 1))) return lua_error(L);
  lua_call(L, 0, 0);
  return 0;
}

int Cycle(lua_State* L) {
  lua_getglobal(L, "cycle");
  lua_call(L, 0, 0);
  return 0;
}

/// Runs `step` in protected mode, so that a Lua error does no harm. A host with a modem port driver
/// holds its lock here.
bool Run(lua_State* L, lua_CFunction step, const char* argument = nullptr) {
  lua_pushcfunction(L, step);
  lua_pushstring(L, argument);
  const bool good = lua_pcall(L, 1, 0, 0) == LUA_OK;
  if (!good) std::fprintf(stderr, "%s\n", lua_tostring(L, -1));
  lua_settop(L, 0);
  return good;
}

bool RunProgram(const char* program, long cycles) {
  lua_State* L = luaL_newstate();
  bool good = L != nullptr && Run(L, Prepare) && Run(L, LoadProgram, program);
  while (good && cycles-- > 0) good = Run(L, Cycle);
  if (L != nullptr) lua_close(L);  // destroys the blocks and waits for their threads
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: minimal_host ADDIN PROGRAM CYCLES\n");
    return 2;
  }
  void* addin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  void* init = addin == nullptr ? nullptr : dlsym(addin, "InitAddin");
  void* dispose = addin == nullptr ? nullptr : dlsym(addin, "DisposeAddin");
  if (init == nullptr || dispose == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 2;
  }
  bool good = reinterpret_cast<int (*)()>(init)() == 0;
  good = good && RunProgram(argv[2], std::strtol(argv[3], nullptr, 10));
  reinterpret_cast<void (*)()>(dispose)();
  dlclose(addin);
  return good ? 0 : 1;
}
