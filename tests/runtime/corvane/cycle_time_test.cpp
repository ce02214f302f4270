// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_time.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "corvane/program.h"
#include "runtime/corvane/control_program.h"
#include "tests/support/temporary_folder.h"

namespace corvane {
namespace {

TEST(CycleTime, IsThatOfTheClocksWhenNoProgramRuns) {
  const CycleTime before = CycleTime::Read();
  const double clock = CorvaneCycleClock();
  const double now = CorvaneCycleNow();
  EXPECT_GE(clock, before.clock);
  EXPECT_NEAR(now, before.now, 60);
  const double year_2020 = 1577836800;
  EXPECT_GT(now, year_2020);
  while (CorvaneCycleClock() == clock) {
  }
}

TEST(CycleTime, StandsStillUntilItIsSet) {
  const double before = CorvaneCycleClock();
  const StandingTime time;
  const double clock = CorvaneCycleClock();
  EXPECT_GE(clock, before);
  while (CycleTime::Read().clock == clock) {
  }
  EXPECT_EQ(CorvaneCycleClock(), clock);
  SetCycleTime({17.5, 1700000000.25});
  EXPECT_EQ(CorvaneCycleClock(), 17.5);
  EXPECT_EQ(CorvaneCycleNow(), 1700000000.25);
}

class CycleTimeOfAProgram : public testing::Test {
 protected:
  CycleTimeOfAProgram() { std::ofstream(file_) << kProgram; }

  static constexpr const char* kProgram =
      "now = plc.now clock = plc.clock() assert(plc.now == now)\n"
      "function cycle() now = plc.now end\n";
  test_support::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_.path() / "program.lua";
};

double Global(const ControlProgram& program, const char* name) {
  lua_getglobal(program.lua(), name);
  const double value = lua_tonumber(program.lua(), -1);
  lua_pop(program.lua(), 1);
  return value;
}

TEST_F(CycleTimeOfAProgram, IsSetBeforeTheFileRuns) {
  const CycleTime before = CycleTime::Read();
  ControlProgram program(file_, {});
  program.Load();
  EXPECT_NEAR(Global(program, "now"), before.now, 60);
  EXPECT_EQ(Global(program, "now"), CorvaneCycleNow());
  EXPECT_GE(CorvaneCycleClock(), before.clock);
  EXPECT_LE(CorvaneCycleClock(), Global(program, "clock"));
}

TEST_F(CycleTimeOfAProgram, IsThatOfTheCycleForBlocksAndForPlcNow) {
  ControlProgram program(file_, {});
  program.Load();
  program.Cycle(1, {1000, 86400});
  EXPECT_EQ(Global(program, "now"), 86400);
  EXPECT_EQ(CorvaneCycleNow(), 86400);
  EXPECT_EQ(CorvaneCycleClock(), 1000);
  program.Cycle(2, {1000.1, 80000});  // the clock was set back
  EXPECT_EQ(Global(program, "now"), 80000);
  EXPECT_EQ(CorvaneCycleClock(), 1000.1);
  const CycleTime before = CycleTime::Read();
  program.Cycle(3);
  EXPECT_GE(CorvaneCycleClock(), before.clock);
  EXPECT_NEAR(Global(program, "now"), before.now, 60);
}

TEST_F(CycleTimeOfAProgram, GoesOnWhenTheProgramHasEnded) {
  {
    ControlProgram program(file_, {});
    program.Load();
    program.Cycle(1, {1, 2});
    EXPECT_EQ(CorvaneCycleClock(), 1);
  }
  EXPECT_NEAR(CorvaneCycleClock(), CycleTime::Read().clock, 60);
}

}  // namespace
}  // namespace corvane
