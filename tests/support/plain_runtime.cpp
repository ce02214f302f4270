// SPDX-License-Identifier: MIT
#include "tests/support/plain_runtime.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "corvane/st_library.h"

namespace test_support {
namespace {

std::vector<lua_CFunction> openers;

constexpr const char* kTypes = R"(
  TYPES = { StandardFB = {}, Elementary = {} }
  for _, name in ipairs { "BOOL", "DINT", "LREAL", "STRING", "DATE_AND_TIME" } do
    TYPES.Elementary[name] = { Name = name }
  end
  function FBMetadata(type) return type end
)";

}  // namespace

void PlainRuntime::Load(int (*init_addin)()) {
  [[maybe_unused]] static const int once = init_addin();
  luaL_openlibs(lua_);
  Run(kTypes);
  for (const lua_CFunction opener : openers) {
    EXPECT_GE(opener(lua_), 0);
    lua_settop(lua_, 0);
  }
}

void PlainRuntime::Run(const std::string& chunk) {
  ASSERT_EQ(luaL_dostring(lua_, chunk.c_str()), 0) << lua_tostring(lua_, -1);
}

std::string PlainRuntime::Eval(const std::string& expression) {
  Run("result = tostring(" + expression + ")");
  lua_getglobal(lua_, "result");
  std::string result = lua_tostring(lua_, -1);
  lua_settop(lua_, 0);
  return result;
}

void PlainRuntime::Close() {
  if (lua_ != nullptr) lua_close(std::exchange(lua_, nullptr));
}

}  // namespace test_support

int RegisterExternalSTLib(const char* /*name*/, lua_CFunction opener) {
  test_support::openers.push_back(opener);
  return 0;
}
