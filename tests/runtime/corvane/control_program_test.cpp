// SPDX-License-Identifier: MIT
#include "runtime/corvane/control_program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/temporary_folder.h"

namespace {

using corvane::ControlProgram;
using corvane::LuaError;
using testing::HasSubstr;
using testing::StartsWith;

class Program : public testing::Test {
 protected:
  /// A program with the given text; a test may add modules to its folder.
  ControlProgram& Write(const std::string& text, std::vector<std::string> arguments = {}) {
    std::ofstream(file_) << text;
    program_.emplace(file_, std::move(arguments));
    return *program_;
  }
  std::string LoadError(const std::string& text) {
    try {
      Write(text).Load();
    } catch (const LuaError& error) {
      return error.what();
    }
    ADD_FAILURE() << "no error";
    return {};
  }
  std::string CycleError(std::uint64_t number = 1) {
    try {
      program_->Cycle(number);
    } catch (const LuaError& error) {
      return error.what();
    }
    ADD_FAILURE() << "no error";
    return {};
  }

  test_support::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_.path() / "program.lua";
  std::optional<ControlProgram> program_;
};

TEST_F(Program, RunsOnceAndThenItsCycle) {
  Write(
      "n = 0 function cycle() n = n + 1 assert(n == plc.cycle) if n == 3 then plc.stop(7) end end")
      .Load();
  program_->Cycle(1);
  program_->Cycle(2);
  EXPECT_FALSE(program_->stop_status());
  program_->Cycle(3);
  EXPECT_EQ(program_->stop_status(), 7);
}

TEST_F(Program, ASyntaxErrorNamesFileAndLine) {
  EXPECT_THAT(LoadError("local a = 1\nlocal b = = 2\n"),
              StartsWith(file_.string() + ":2: unexpected symbol"));
}

TEST_F(Program, AProgramWithoutCycleSaysWhatIsMissing) {
  EXPECT_EQ(
      LoadError("x = 1"),
      file_.string() +
          ": the program has no global function cycle(), which the runtime calls in each cycle");
  EXPECT_THAT(LoadError("cycle = 5"), HasSubstr("no global function cycle()"));
}

TEST_F(Program, GuardedGlobalsDoNotHideThatCycleIsMissing) {
  EXPECT_THAT(LoadError("setmetatable(_G, {__index = function(_, n) error('no ' .. n) end})"),
              HasSubstr("no global function cycle()"));
}

TEST_F(Program, AnErrorInTheFileHasATraceback) {
  const std::string error = LoadError("local function f() error('no level') end\nf()");
  EXPECT_THAT(error, StartsWith(file_.string() + ":1: no level\nstack traceback:"));
  EXPECT_THAT(error, HasSubstr(":2: in main chunk"));
}

TEST_F(Program, AnErrorInCycleHasATraceback) {
  Write("function cycle() local x = nil; return x.level end").Load();
  EXPECT_THAT(CycleError(), testing::AllOf(HasSubstr("attempt to index local 'x'"),
                                           HasSubstr("stack traceback:")));
}

TEST_F(Program, AnErrorValueThatIsNotATextIsDescribed) {
  Write("function cycle() error({}) end").Load();
  EXPECT_THAT(CycleError(), StartsWith("(error object is a table)"));
  Write("function cycle() error(nil) end").Load();
  EXPECT_THAT(CycleError(), StartsWith("(error object is a nil)"));
  Write(
      "function cycle() error(setmetatable({}, {__tostring = function() return 'custom' end})) end")
      .Load();
  EXPECT_THAT(CycleError(), StartsWith("custom"));
}

TEST_F(Program, EndlessRecursionIsAnError) {
  Write("function cycle() cycle() end").Load();
  EXPECT_THAT(CycleError(), HasSubstr("stack overflow"));
}

TEST_F(Program, RemovingCycleWhileTheProgramRunsIsAnError) {
  Write("function cycle() cycle = nil end").Load();
  program_->Cycle(1);
  EXPECT_THAT(CycleError(2), HasSubstr("attempt to call a nil value"));
}

TEST_F(Program, AProgramMayRemoveThePlcTable) {
  Write("function cycle() plc = nil end").Load();
  program_->Cycle(1);
  program_->Cycle(2);
}

TEST_F(Program, RequiresModulesFromItsOwnFolder) {
  std::ofstream(folder_.path() / "tank.lua") << "return {level = function() return 42 end}";
  Write("local tank = require 'tank' function cycle() plc.stop(tank.level()) end").Load();
  program_->Cycle(1);
  EXPECT_EQ(program_->stop_status(), 42);
}

TEST_F(Program, MayStopWhileItsFileRunsAndThenNeedsNoCycle) {
  Write("plc.stop(3)").Load();
  EXPECT_EQ(program_->stop_status(), 3);
}

TEST_F(Program, OsExitEndsItAtOnceWithItsStatus) {
  Write("function cycle() os.exit(4) error('not reached') end").Load();
  program_->Cycle(1);
  EXPECT_EQ(program_->stop_status(), 4);
  Write("os.exit(true)").Load();
  EXPECT_EQ(program_->stop_status(), 0);
  Write("os.exit(false)").Load();
  EXPECT_EQ(program_->stop_status(), 1);
}

TEST_F(Program, PrecompiledCodeIsRefused) {
  for (const char* text : {"\x1bLua and what follows", "#!/usr/bin/lua\n\x1bLua"}) {
    EXPECT_EQ(LoadError(text), file_.string() +
                                   ": the program is precompiled; give the Lua source it was made "
                                   "from");
  }
}

TEST_F(Program, AMissingFileIsAnError) {
  program_.emplace(folder_.path() / "none.lua", std::vector<std::string>{});
  EXPECT_THROW(program_->Load(), LuaError);
}

}  // namespace
