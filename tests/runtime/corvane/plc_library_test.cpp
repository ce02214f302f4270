// SPDX-License-Identifier: MIT
#include "runtime/corvane/plc_library.h"

#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"

namespace {

class PlcLibrary : public test_support::LuaHost {
 protected:
  PlcLibrary() {
    context_.arguments = {"/var", "two words"};
    corvane::OpenPlc(L(), context_);
  }
  corvane::PlcContext context_;
};

TEST_F(PlcLibrary, ArgsAreTheWordsOfTheCommandLine) {
  EXPECT_EQ(Eval("#plc.args"), "2");
  EXPECT_EQ(Eval("plc.args[2]"), "two words");
}

TEST_F(PlcLibrary, CycleIs0BeforeTheFirstOne) {
  EXPECT_EQ(Eval("plc.cycle"), "0");
}

TEST_F(PlcLibrary, ClockIsMonotonicSeconds) {
  EXPECT_EQ(Eval("type(plc.clock())"), "number");
  EXPECT_EQ(Eval("(function() local a = plc.clock() return plc.clock() >= a end)()"), "true");
}

TEST_F(PlcLibrary, LogWritesOneInfoLine) {
  test_support::TakeLog();
  Run("plc.log('level 3 {}') plc.log(12) plc.log(true)");
  EXPECT_THAT(test_support::TakeLog(),
              testing::ElementsAre("info level 3 {}", "info 12", "info true"));
}

TEST_F(PlcLibrary, LogShowsControlCharactersInsteadOfObeyingThem) {
  test_support::TakeLog();
  Run("plc.log('a\\nb\\27[2J')");
  EXPECT_THAT(test_support::TakeLog(), testing::ElementsAre("info a", "info b\\x1B[2J"));
}

TEST_F(PlcLibrary, StopSetsTheStatusAndContinues) {
  Run("plc.stop() after = true");
  EXPECT_EQ(context_.stop_status, 0);
  EXPECT_EQ(Eval("after"), "true");
  Run("plc.stop(255)");
  EXPECT_EQ(context_.stop_status, 255);
}

TEST_F(PlcLibrary, StopRefusesAnInvalidExitStatus) {
  for (const char* status : {"-1", "256", "1.5", "0/0", "1e300", "'x'", "{}"}) {
    EXPECT_THAT(ErrorOf("plc.stop(" + std::string(status) + ")"),
                testing::HasSubstr("bad argument #1 to 'stop'"))
        << status;
  }
  EXPECT_FALSE(context_.stop_status);
}

TEST_F(PlcLibrary, OsExitRaisesTheExitRequest) {
  EXPECT_THROW(Run("os.exit(5)"), corvane::ExitRequest);
  EXPECT_EQ(context_.stop_status, 5);
}

TEST_F(PlcLibrary, OsExitInsidePcallStillStopsTheProgram) {
  Run("pcall(os.exit, 6)");
  EXPECT_EQ(context_.stop_status, 6);
}

}  // namespace
