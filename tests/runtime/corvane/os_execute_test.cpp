// SPDX-License-Identifier: MIT
#include "runtime/corvane/os_execute.h"

#include <gtest/gtest.h>

#include <string>

#include "runtime/corvane/lua_environment.h"
#include "tests/support/spawning.h"

namespace {

/// The results of `os.execute(arguments)`, as text.
std::string Execute(const std::string& arguments) {
  const corvane::LuaEnvironment lua;
  lua_State* L = lua.state();
  const std::string chunk =
      "local function show(...)\n"
      "  local n, shown = select('#', ...), {...}\n"
      "  for i = 1, n do shown[i] = tostring(shown[i]) end\n"
      "  return table.concat(shown, ' ')\n"
      "end\n"
      "return show(os.execute(" +
      arguments + "))";
  EXPECT_EQ(luaL_loadstring(L, chunk.c_str()), LUA_OK);
  corvane::ProtectedCall(L, 0, 1);
  return lua_tostring(L, -1);
}

TEST(OsExecute, ReturnsWhatTheLuaManualSays) {
  EXPECT_EQ(Execute("'true'"), "true exit 0");
  EXPECT_EQ(Execute("'exit 3'"), "nil exit 3");
  EXPECT_EQ(Execute("'kill -TERM $$'"), "nil signal 15");
  EXPECT_EQ(Execute("'/no/such/command 2>/dev/null'"), "nil exit 127");
  EXPECT_EQ(Execute(""), "true");
  EXPECT_EQ(Execute("nil"), "true");
}

TEST(OsExecute, PassesTheCommandToAShell) {
  EXPECT_EQ(Execute("'test \"$(printf %s a b)\" = ab'"), "true exit 0");
}

TEST(OsExecute, RefusesWhatIsNotText) {
  EXPECT_THROW(Execute("{}"), corvane::LuaError);
}

TEST(OsExecute, OfACommandThatIsTooLongReturnsTheReason) {
  if (!test_support::SpawnReportsFailure())
    GTEST_SKIP() << "the emulator's posix_spawn reports no failure";
  EXPECT_EQ(Execute("(' '):rep(3000000)"), "nil Argument list too long 7");
}

}  // namespace
