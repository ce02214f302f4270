// SPDX-License-Identifier: MIT
#include "tests/support/lua_host.h"

#include <cstdlib>

namespace test_support {

LuaHost::LuaHost() : environment_(std::make_unique<corvane::LuaEnvironment>()) {
  // The Lua suites run a second time with the collector at full speed.
  if (std::getenv("CORVANE_TEST_GC_STRESS") != nullptr) {
    lua_gc(L(), LUA_GCSETPAUSE, 0);
    lua_gc(L(), LUA_GCSETSTEPMUL, 10000);
  }
}

void LuaHost::Run(const std::string& chunk) {
  if (luaL_loadbufferx(L(), chunk.data(), chunk.size(), "=test", "t") != LUA_OK) {
    const corvane::LuaError error(lua_tostring(L(), -1));
    lua_pop(L(), 1);
    throw error;
  }
  corvane::ProtectedCall(L(), 0, 0);
}

std::string LuaHost::Eval(const std::string& expression) {
  Run("test_result = tostring((" + expression + "))");
  lua_getglobal(L(), "test_result");
  std::size_t length = 0;
  const char* text = lua_tolstring(L(), -1, &length);
  std::string result(text, length);
  lua_pop(L(), 1);
  return result;
}

std::string LuaHost::ErrorOf(const std::string& chunk) {
  try {
    Run(chunk);
  } catch (const corvane::LuaError& error) {
    const std::string message = error.what();
    return message.substr(0, message.find('\n'));
  }
  ADD_FAILURE() << "no error from: " << chunk;
  return {};
}

void LuaHost::Collect() {
  lua_gc(L(), LUA_GCCOLLECT, 0);
  lua_gc(L(), LUA_GCCOLLECT, 0);
}

}  // namespace test_support
