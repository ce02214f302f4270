// SPDX-License-Identifier: MIT
// The warning about a name that a block does not declare.
#include "block/undeclared.h"

#include "tests/include/block/probe_fb.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Undeclared : public ProbeTest {
 protected:
  std::vector<std::string> LogOf(const std::string& chunk) {
    Run(chunk);
    return test_support::TakeLog();
  }
};

TEST_F(Undeclared, AssignmentIsReportedWithFileLineAndTheNearestNameAndKept) {
  EXPECT_THAT(LogOf("local one = 1\nfb.Strnig = 'x'"),
              ElementsAre("warning test:2: PROBE does not declare \"Strnig\"; the nearest name is "
                          "\"String\""));
  EXPECT_EQ(Eval("fb.Strnig"), "x");
}

TEST_F(Undeclared, InitialValueIsReportedWithTheLineThatCreatesTheBlock) {
  EXPECT_THAT(LogOf("\n\nother = PROBE.new{bool = true, DInt = 1}"),
              ElementsAre("warning test:3: PROBE does not declare \"bool\"; the nearest name is "
                          "\"Bool\""));
}

TEST_F(Undeclared, EachNameIsReportedOnceWhicheverBlockItIsGivenTo) {
  EXPECT_THAT(LogOf("for i = 1, 3 do fb.Real32 = i PROBE.new().Real32 = i end"),
              testing::SizeIs(1));
  EXPECT_THAT(LogOf("PROBE.new{Real32 = 1} PROBE.set(fb, 'Real32', 2)"), IsEmpty());
  EXPECT_THAT(LogOf("fb.Real64 = 1"), testing::SizeIs(1));
}

TEST_F(Undeclared, EachTypeReportsItsOwn) {
  Run("fb.Onlx = 1");
  EXPECT_THAT(LogOf("OTHER.new{Onlx = 1}"),
              testing::Contains("warning test:1: OTHER does not declare \"Onlx\"; the nearest name "
                                "is \"Only\""));
}

TEST_F(Undeclared, ReadingIsNotReportedAndALaterAssignmentStillIs) {
  EXPECT_THAT(LogOf("local nothing = fb.Bol, fb.Bol"), IsEmpty());
  EXPECT_THAT(LogOf("fb.Bol = true"), testing::SizeIs(1));
}

TEST_F(Undeclared, DeclaredNamesAndTheHostsAreNotReported) {
  EXPECT_THAT(LogOf("fb.Bool = true fb.EnO = true PROBE.new{String = 'x', Time = 0}"), IsEmpty());
}

TEST_F(Undeclared, AnUndeclaredNameThatTheBlockKnowsIsNotReported) {
  EXPECT_THAT(LogOf("fb.Throw = 'no'"), IsEmpty());
}

TEST_F(Undeclared, ARefusedAssignmentIsAnErrorAndIsReportedOnceItSucceeds) {
  EXPECT_EQ(ErrorOf("fb.Bol = {}").substr(0, 12), "test:1: Bol:");
  EXPECT_THAT(test_support::TakeLog(), IsEmpty());
  EXPECT_THAT(LogOf("fb.Bol = 1"), testing::SizeIs(1));
}

TEST_F(Undeclared, TheLineIsTheProgramsEvenThroughCFunctions) {
  EXPECT_THAT(LogOf("\npcall(PROBE.set, fb, 'Boll', true)"),
              ElementsAre(testing::StartsWith("warning test:2: PROBE does not declare \"Boll\"")));
}

TEST_F(Undeclared, ANumberAsANameIsReportedAsItsText) {
  EXPECT_THAT(LogOf("fb[7] = 1"),
              ElementsAre(testing::StartsWith("warning test:1: PROBE does not declare \"7\"")));
}

TEST_F(Undeclared, ALongNameIsShownInPart) {
  const auto log = LogOf("fb[('x'):rep(100000)] = 1");
  ASSERT_EQ(log.size(), 1U);
  EXPECT_LT(log[0].size(), 200U);
}

TEST_F(Undeclared, AProgramThatMakesUpNamesGetsAHundredLinesAndALastOne) {
  const auto log = LogOf("for i = 1, 1000 do fb['made' .. i] = i end");
  ASSERT_EQ(log.size(), 101U);
  EXPECT_EQ(log.back(),
            "warning test:1: PROBE: 100 names that it does not declare were reported; further ones "
            "are not");
  EXPECT_EQ(Eval("fb.made1000"), "1000");
}

TEST_F(Undeclared, EachStateReportsForItself) {
  Run("fb.Bol = 1");
  test_support::TakeLog();
  corvane::LuaEnvironment next;
  luaopen_ProbeFB(next.state());
  ASSERT_EQ(luaL_loadstring(next.state(), "PROBE.new().Bol = 1"), LUA_OK);
  corvane::ProtectedCall(next.state(), 0, 0);
  EXPECT_THAT(test_support::TakeLog(), testing::SizeIs(1));
}

TEST_F(Undeclared, AFinalizerMayDestroyTheBlockWhileItsNameIsReported) {
  Run(R"(
    collectgarbage('setpause', 100) collectgarbage('setstepmul', 1000)
    local ended = 0
    for i = 1, 300 do
      local fb = PROBE.new{String = ('x'):rep(1000)}
      local gc = getmetatable(fb).__gc
      local done = false
      setmetatable({}, {__gc = function() if not done then done = true gc(fb) end end})
      local names = {}
      for j = 1, 100 do names[j] = 'n' .. i .. '_' .. j end
      for j = 1, 100 do if done or not pcall(PROBE.set, fb, names[j], j) then break end end
      if done then ended = ended + 1 end
    end
    assert(ended > 0))");
}

}  // namespace
