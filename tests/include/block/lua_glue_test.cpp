// SPDX-License-Identifier: MIT
// How a block is reached from Lua: the functions of its module and of its metatable.
#include "block/lua_glue.h"

#include "tests/include/block/probe_fb.h"

namespace {

class LuaGlue : public ProbeTest {};

TEST_F(LuaGlue, CallReturnsTheBlockWithoutArguments) {
  EXPECT_EQ(Eval("fb() == fb"), "true");
  EXPECT_EQ(Eval("select('#', fb())"), "1");
}

TEST_F(LuaGlue, CallReturnsItsLastArgument) {
  EXPECT_EQ(Eval("fb(1, 2, 'three')"), "three");
  EXPECT_EQ(Eval("PROBE.call(fb, 5)"), "5");
  EXPECT_EQ(Eval("select('#', fb(1, 2, 'three'))"), "1");
}

TEST_F(LuaGlue, GetAndSetOfTheModuleAreReadingAndAssigning) {
  Run("PROBE.set(fb, 'DInt', 42)");
  EXPECT_EQ(Eval("fb.DInt"), "42");
  EXPECT_EQ(Eval("PROBE.get(fb, 'DInt')"), "42");
  EXPECT_EQ(Eval("select('#', PROBE.set(fb, 'DInt', 1))"), "0");
}

TEST_F(LuaGlue, ABlockOfAnotherTypeIsAnErrorInArgument1) {
  Run("other = OTHER.new()");
  for (const char* call : {"get(other, 'x')", "set(other, 'x', 1)", "call(other)"}) {
    EXPECT_THAT(ErrorOf("PROBE." + std::string(call)), testing::HasSubstr("bad argument #1"))
        << call;
  }
  EXPECT_THAT(ErrorOf("getmetatable(fb).__gc(other)"), testing::HasSubstr("bad argument #1"));
}

TEST_F(LuaGlue, AnythingElseInsteadOfTheBlockIsAnArgumentError) {
  for (const char* value : {"nil", "1", "'fb'", "{}", "print", "io.stdout", ""}) {
    for (const char* function : {"get", "set", "call"}) {
      EXPECT_THAT(ErrorOf("PROBE." + std::string(function) + "(" + value + ")"),
                  testing::HasSubstr("bad argument #1"))
          << function << " " << value;
    }
  }
}

TEST_F(LuaGlue, AVariableNameThatIsNotAStringIsAnArgumentError) {
  for (const char* key : {"true", "{}", "print", "fb"}) {
    EXPECT_THAT(ErrorOf("local v = fb[" + std::string(key) + "]"),
                testing::ContainsRegex("bad argument #2 .*variable name expected"))
        << key;
    EXPECT_THAT(ErrorOf("fb[" + std::string(key) + "] = 1"),
                testing::ContainsRegex("bad argument #2 .*variable name expected"))
        << key;
  }
  EXPECT_THAT(ErrorOf("local v = fb[nil]"), testing::HasSubstr("variable name expected, got nil"));
}

TEST_F(LuaGlue, MissingArgumentsAreNamed) {
  EXPECT_THAT(
      ErrorOf("PROBE.get(fb)"),
      testing::HasSubstr("bad argument #2 to 'get' (variable name expected, got no value)"));
  EXPECT_THAT(
      ErrorOf("PROBE.set(fb)"),
      testing::HasSubstr("bad argument #2 to 'set' (variable name expected, got no value)"));
  EXPECT_THAT(ErrorOf("PROBE.set(fb, 'DInt')"),
              testing::HasSubstr("bad argument #3 to 'set' (value expected, got no value)"));
}

TEST_F(LuaGlue, ANumberIsAVariableName) {
  Run("fb[12] = 'twelve'");
  EXPECT_EQ(Eval("fb['12']"), "twelve");
  EXPECT_EQ(Eval("fb[12]"), "twelve");
}

TEST_F(LuaGlue, NewWithAColonSaysHowItIsWritten) {
  for (const char* call : {"PROBE:new{ DInt = 1 }", "PROBE:new()", "PROBE.new(PROBE)"}) {
    EXPECT_EQ(ErrorOf("x = " + std::string(call)),
              "test:1: write PROBE.new { ... }, with a dot, not a colon");
  }
}

TEST_F(LuaGlue, NewWithoutTableOrWithNilHasNoInitialValues) {
  EXPECT_EQ(Eval("PROBE.new().DInt + PROBE.new(nil).DInt"), "0");
}

TEST_F(LuaGlue, NewWithSomethingElseIsAnArgumentError) {
  for (const char* value : {"1", "'text'", "true", "print", "fb"}) {
    EXPECT_THAT(ErrorOf("PROBE.new(" + std::string(value) + ")"),
                testing::HasSubstr("bad argument #1 to 'new' (table expected"))
        << value;
  }
}

TEST_F(LuaGlue, NewUsesItsFirstArgumentAndIgnoresFurtherOnes) {
  EXPECT_EQ(Eval("PROBE.new({DInt = 1}, {DInt = 2}, 3).DInt"), "1");
}

TEST_F(LuaGlue, AConstructorThatThrowsIsALuaErrorAndNothingIsDestroyed) {
  const int before = ProbeFB::alive;
  ProbeFB::fail_construction = true;
  EXPECT_THAT(ErrorOf("PROBE.new()"), testing::HasSubstr("no room for a probe"));
  ProbeFB::fail_construction = false;
  Collect();
  EXPECT_EQ(ProbeFB::alive, before) << "__gc destroyed a block that was never built";
}

TEST_F(LuaGlue, AnExceptionOfTheBlockIsALuaErrorThatPcallCatches) {
  Run("fb.Throw = 'out of paper'");
  EXPECT_EQ(Eval("select(2, pcall(fb))"), "out of paper");
  EXPECT_EQ(ErrorOf("fb()"), "test:1: out of paper");
}

TEST_F(LuaGlue, ALongExceptionTextIsTruncated) {
  Run("fb.Throw = ('x'):rep(10000)");
  EXPECT_EQ(Eval("#select(2, pcall(fb))"), "255");
}

TEST_F(LuaGlue, GcCalledByHandDestroysOnceAndLeavesNoBlockToUse) {
  const int before = ProbeFB::alive;
  Run("gc = getmetatable(fb).__gc gc(fb)");
  EXPECT_EQ(ProbeFB::alive, before - 1);
  EXPECT_THAT(ErrorOf("gc(fb)"), testing::HasSubstr("bad argument #1"));
  EXPECT_THAT(ErrorOf("fb.DInt = 1"), testing::HasSubstr("attempt to index"));
  EXPECT_THAT(ErrorOf("PROBE.call(fb)"), testing::HasSubstr("bad argument #1"));
  Run("fb = nil");
  Collect();
  EXPECT_EQ(ProbeFB::alive, before - 1);
}

TEST_F(LuaGlue, GcWithFurtherArgumentsUsesTheFirst) {
  Run("other = PROBE.new() getmetatable(fb).__gc(fb, other)");
  EXPECT_EQ(Eval("other.DInt"), "0");
}

TEST_F(LuaGlue, AValueThatOnlyHasTheMetatableIsNotABlock) {
  Run("table_of_it = setmetatable({}, getmetatable(fb))");
  EXPECT_THAT(ErrorOf("PROBE.get(table_of_it, 'DInt')"),
              testing::HasSubstr("bad argument #1 to 'get' (PROBE expected, got table)"));
  EXPECT_THAT(ErrorOf("PROBE.get(OTHER.new(), 'DInt')"),
              testing::HasSubstr("bad argument #1 to 'get' (PROBE expected, got userdata)"));
}

TEST_F(LuaGlue, TheBlocksOfSeveralStatesAreKnownWhicheverOpenedTheTypeLast) {
  corvane::LuaEnvironment second;
  const auto run_in_second = [&second](const char* chunk) {
    ASSERT_EQ(luaL_loadstring(second.state(), chunk), LUA_OK);
    corvane::ProtectedCall(second.state(), 0, 0);
  };
  luaopen_ProbeFB(second.state());
  luaopen_OtherFB(second.state());
  lua_settop(second.state(), 0);
  run_in_second("fb = PROBE.new{DInt = 2} assert(fb.DInt == 2)");
  Run("fb.DInt = 1 assert(fb.DInt == 1) other = OTHER.new()");
  EXPECT_THAT(ErrorOf("PROBE.get(other, 'DInt')"), testing::HasSubstr("bad argument #1"));
  run_in_second("assert(fb.DInt == 2 and not pcall(PROBE.get, OTHER.new(), 'DInt'))");
}

TEST_F(LuaGlue, AStateThatReplacesAnotherKnowsItsBlocks) {
  for (int i = 0; i < 20; ++i) {
    corvane::LuaEnvironment next;  // often at the address of the one before
    luaopen_ProbeFB(next.state());
    luaopen_OtherFB(next.state());
    lua_settop(next.state(), 0);
    ASSERT_EQ(luaL_loadstring(next.state(),
                              "assert(PROBE.new{DInt = 3}.DInt == 3)"
                              "assert(not pcall(PROBE.get, OTHER.new(), 'DInt'))"),
              LUA_OK);
    EXPECT_NO_THROW(corvane::ProtectedCall(next.state(), 0, 0));
  }
}

TEST_F(LuaGlue, IndexOfTheMetatableIsAFunction) {
  EXPECT_EQ(Eval("type(getmetatable(fb).__index)"), "function");
}

TEST_F(LuaGlue, TheOpenerLeavesItsMetatableOnTheStackAndReturns1) {
  ASSERT_EQ(luaopen_ProbeFB(L()), 1);
  luaL_getmetatable(L(), "PROBE");
  EXPECT_TRUE(lua_rawequal(L(), 1, -1));
}

TEST_F(LuaGlue, TheOpenerCreatesAGlobalModuleTableWithFourFunctions) {
  for (const char* name : {"new", "get", "set", "call"}) {
    EXPECT_EQ(Eval("type(PROBE." + std::string(name) + ")"), "function") << name;
  }
  EXPECT_EQ(Eval("(function() local n = 0 for _ in pairs(PROBE) do n = n + 1 end return n end)()"),
            "4");
}

TEST_F(LuaGlue, TheOpenerReusesAModuleTable) {
  Run("PROBE.mine = 1 before = PROBE");
  luaopen_ProbeFB(L());
  EXPECT_EQ(Eval("PROBE == before and PROBE.mine"), "1");
}

TEST_F(LuaGlue, MetadataThatFailsIsOneLogLineAndMinus1AndTheTablesStay) {
  Run("FBMetadata = nil");
  test_support::TakeLog();
  lua_settop(L(), 0);
  EXPECT_EQ(luaopen_ProbeFB(L()), -1);
  EXPECT_THAT(test_support::TakeLog(),
              testing::ElementsAre("warning [string \"PROBE\"]:1: attempt to call global "
                                   "'FBMetadata' (a nil value)"))
      << "the chunk's name is the bare type name";
  EXPECT_EQ(Eval("type(PROBE.new)"), "function");
}

TEST_F(LuaGlue, MetadataThatFailsToRunLeavesOnlyTheTablesOnTheStack) {
  Run("TYPES = nil");
  lua_settop(L(), 0);
  EXPECT_EQ(luaopen_ProbeFB(L()), -1);
  EXPECT_EQ(lua_gettop(L()), 2);
}

}  // namespace
