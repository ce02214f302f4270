// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "runtime/corvane/call_tracking.h"
#include "runtime/corvane/lua_environment.h"
#include "tests/support/captured_log.h"
#include "tests/support/wait_for.h"

namespace corvane {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class CycleWatchdogTest : public testing::Test {
 protected:
  CycleWatchdogTest() {
    test_support::TakeLog();
    lua_pushcfunction(L(), Enough);
    lua_setglobal(L(), "enough");
  }
  lua_State* L() const { return lua_.state(); }
  void Run(const std::string& program) const {
    ASSERT_EQ(luaL_loadbuffer(L(), program.data(), program.size(), "@pump.lua"), LUA_OK);
    ProtectedCall(L(), 0, 0);
  }
  /// Runs the code as a cycle. In it, `enough(n)` returns whether the log has n lines.
  std::vector<std::string> RunCycle(CycleWatchdog& watchdog, const std::string& program,
                                    std::uint64_t number = 7) {
    logged_.clear();
    const CycleWatchdog::Cycle cycle(watchdog, number);
    Run(program);
    return logged_;
  }

 private:
  static int Enough(lua_State* L) {
    for (std::string& line : test_support::TakeLog()) logged_.push_back(std::move(line));
    const bool enough = logged_.size() >= static_cast<std::size_t>(luaL_checkinteger(L, 1));
    lua_pushboolean(L, enough ? 1 : 0);
    return 1;
  }

  static std::vector<std::string> logged_;
  LuaEnvironment lua_;
};
std::vector<std::string> CycleWatchdogTest::logged_;

TEST_F(CycleWatchdogTest, NamesTheLineOnceForEachLimit) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20), milliseconds(60)}});
  EXPECT_THAT(RunCycle(watchdog, "local x\n\nwhile not enough(2) do x = 1 end"),
              ElementsAre(MatchesRegex("warning cycle 7 has been running for .*: it is at "
                                       "pump.lua:3"),
                          MatchesRegex("warning cycle 7 has been running for .*: it is at "
                                       "pump.lua:3")));
}

TEST_F(CycleWatchdogTest, StartsAgainWithEachCycle) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20), hours(1)}});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(RunCycle(watchdog, "while not enough(1) do end").size(), 1u);
  }
}

TEST_F(CycleWatchdogTest, IsSilentBetweenCyclesAndAboutShortOnes) {
  CycleWatchdog watchdog(L(), {.limits = {hours(1)}});
  EXPECT_THAT(RunCycle(watchdog, "for i = 1, 100000 do end"), IsEmpty());
  EXPECT_THAT(test_support::TakeLog(), IsEmpty());
}

TEST_F(CycleWatchdogTest, DistinguishesTheProgramsFileFromACycle) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20)}});
  EXPECT_THAT(RunCycle(watchdog, "while not enough(1) do end", 0),
              ElementsAre(MatchesRegex("warning the program's file has been running for .*")));
}

TEST_F(CycleWatchdogTest, LeavesTheProgramsOwnHookInPlace) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20)}});
  RunCycle(watchdog,
           "function hook() end debug.sethook(hook, 'l')\n"
           "while not enough(1) do end\n"
           "kept = debug.gethook() == hook debug.sethook()");
  lua_getglobal(L(), "kept");
  EXPECT_TRUE(lua_toboolean(L(), -1));
}

TEST_F(CycleWatchdogTest, NamesTheFunctionThatHoldsTheCycle) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20)}});
  EXPECT_THAT(RunCycle(watchdog, "\nwhile not enough(1) do os.execute('sleep 0.1') end"),
              ElementsAre(MatchesRegex("warning cycle 7 has been running for .*: it is in "
                                       "os.execute, called at pump.lua:2")));
}

TEST_F(CycleWatchdogTest, SaysWhenThereIsNoLine) {
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20)}});
  EXPECT_THAT(RunCycle(watchdog, "coroutine.wrap(function() while not enough(1) do end end)()"),
              ElementsAre(MatchesRegex("warning .*: it is in a coroutine, or in a function that is "
                                       "not written in Lua")));
}

/// A watchdog that allows 20 ms, and what it says when a cycle takes longer.
class CycleWatchdogEnd : public CycleWatchdogTest {
 protected:
  CycleWatchdogEnd() {
    lua_pushcfunction(L(), Ended);
    lua_setglobal(L(), "ended");
    ends_ = 0;
  }
  /// Runs the code as a cycle, in which `ended()` returns whether the watchdog has ended the
  /// program.
  std::string RunTooLong(const std::string& program, std::uint64_t number = 7) {
    CycleWatchdog watchdog(
        L(),
        {.limits = {hours(1)}, .longest = milliseconds(20), .end = [this](const std::string& what) {
           what_ = what;
           ++ends_;
         }});
    RunCycle(watchdog, program, number);
    return what_;
  }
  static int Ended(lua_State* L) {
    lua_pushboolean(L, ends_ != 0 ? 1 : 0);
    return 1;
  }

  static inline std::atomic<int> ends_{0};

 private:
  std::string what_;
};

TEST_F(CycleWatchdogEnd, EndsTheProgramOnceWithTheTraceback) {
  EXPECT_THAT(
      RunTooLong("local function wait()\n while not ended() do end\nend\nlocal x = 1 wait()"),
      MatchesRegex("cycle 7 has been running for .*, longer than the watchdog allows .20ms.: "
                   "it is at pump.lua:2; traceback: (.C. in function 'ended', )?pump.lua:2 in "
                   "function 'wait', pump.lua:4 in main chunk"));
  EXPECT_EQ(ends_, 1);
}

TEST_F(CycleWatchdogEnd, ErrorsThatTheProgramSwallowsDoNotHideIt) {
  EXPECT_THAT(RunTooLong("\nwhile not ended() do pcall(error, 'x') end"),
              testing::HasSubstr("pump.lua:2 in main chunk"));
}

TEST_F(CycleWatchdogEnd, FindsItsWayOutOfAFunctionThatIsNotWrittenInLua) {
  EXPECT_THAT(
      RunTooLong("local function run()\n os.execute('sleep 0.5') end\nrun()"),
      testing::EndsWith("it is in os.execute, called at pump.lua:2; traceback: [C] in function "
                        "'execute', pump.lua:2 in function 'run', pump.lua:3 in main chunk"));
  ends_ = 0;
  EXPECT_THAT(RunTooLong("local text = string.rep('a', 24)\n"
                         "while not ended() do text:find(string.rep('a-', 7) .. 'b') end"),
              testing::EndsWith("pump.lua:2 in main chunk"));
}

TEST_F(CycleWatchdogEnd, ShowsTheCallerOfACoroutine) {
  EXPECT_THAT(
      RunTooLong("local co = coroutine.wrap(function() while not ended() do end end)\n\nco()"),
      testing::EndsWith("[C] in function 'co', pump.lua:3 in main chunk"));
}

TEST_F(CycleWatchdogEnd, ADeepRecursionIsCutInTheMiddle) {
  const std::string text = RunTooLong(
      "local function down(n) if n > 0 then down(n - 1) end while not ended() do end "
      "end\ndown(100)");
  EXPECT_THAT(text, testing::HasSubstr(", ..., "));
  EXPECT_THAT(text, testing::EndsWith("pump.lua:2 in main chunk"));
  EXPECT_LT(text.size(), 1000u);
}

TEST_F(CycleWatchdogEnd, LetsTheFileItselfTakeItsTime) {
  std::atomic<int> looks = 0;
  CycleWatchdog watchdog(L(), {.limits = {hours(1)},
                               .longest = milliseconds(4),
                               .end = [this](const std::string&) { ++ends_; },
                               .alive = [&looks](std::uint64_t) { ++looks; }});
  const CycleWatchdog::Cycle file(watchdog, 0);
  EXPECT_TRUE(test_support::WaitFor([&looks] { return looks > 20; }));
  EXPECT_EQ(ends_, 0);
}

TEST_F(CycleWatchdogEnd, SaysThatItIsAliveUntilACycleTakesTooLong) {
  std::atomic<int> looks = 0;
  std::atomic<std::uint64_t> number = 0;
  CycleWatchdog watchdog(L(), {.limits = {hours(1)},
                               .longest = milliseconds(20),
                               .end = [this](const std::string&) { ++ends_; },
                               .alive =
                                   [&](std::uint64_t last) {
                                     ++looks;
                                     number = last;
                                   }});
  { const CycleWatchdog::Cycle cycle(watchdog, 5); }
  EXPECT_TRUE(test_support::WaitFor([&] { return looks > 10 && number == 5; }));
  EXPECT_EQ(ends_, 0) << "no cycle is running";
  RunCycle(watchdog, "while not ended() do end", 6);
  const int before = looks;
  RunCycle(watchdog, "os.execute('sleep 0.1')", 7);
  EXPECT_EQ(looks, before);
  EXPECT_EQ(ends_, 1);
}

/// A tracked call, made from Lua. What it sees is stored in `seen`.
TrackedCall seen;
int LookAtCall(lua_State* L) {
  const char* const former = EnterCall(L, "LOOK");
  seen = CurrentCall().value_or(TrackedCall{});
  LeaveCall(former);
  return 0;
}

int CallThatFails(lua_State* L) {
  static_cast<void>(EnterCall(L, "FAILS"));
  return luaL_error(L, "of the call");
}

TEST_F(CycleWatchdogTest, ForgetsACallThatAnErrorHasLeftWithTheNextCycle) {
  lua_pushcfunction(L(), CallThatFails);
  lua_setglobal(L(), "fail");
  Run("pcall(fail)");
  StartCycle();
  EXPECT_FALSE(CurrentCall().has_value());
  CycleWatchdog watchdog(L(), {.limits = {milliseconds(20)}});
  EXPECT_THAT(RunCycle(watchdog, "\nwhile not enough(1) do end"),
              ElementsAre(MatchesRegex("warning .*: it is at pump.lua:2")));
}

TEST_F(CycleWatchdogTest, KnowsTheLineOfTheFirstCallsOfACycleAndTheNameOfAll) {
  lua_pushcfunction(L(), LookAtCall);
  lua_setglobal(L(), "look");
  StartCycle();
  Run("for i = 1, " + std::to_string(kNotedCalls) + " do\nlook() end");
  EXPECT_EQ(seen.what, "LOOK");
  EXPECT_EQ(seen.where, "pump.lua:2");
  Run("look()");
  EXPECT_EQ(seen.what, "LOOK");
  EXPECT_EQ(seen.where, "");
  StartCycle();
  Run("\n\npcall(look)");
  EXPECT_EQ(seen.where, "pump.lua:3");
  EXPECT_FALSE(CurrentCall().has_value());
}

}  // namespace
}  // namespace corvane
