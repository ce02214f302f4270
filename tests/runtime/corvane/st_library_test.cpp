// SPDX-License-Identifier: MIT
// The registry of block types. The whole process shares it, so each test uses different names.
#include "runtime/corvane/st_library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/corvane/lua_environment.h"
#include "tests/support/captured_log.h"

namespace {

int Opens(lua_State* L) {
  lua_pushboolean(L, 1);
  lua_setglobal(L, "opened");
  return 1;
}

int Fails(lua_State* /*L*/) {
  return -1;
}

TEST(StLibrary, KeepsTheFirstOfTwoRegistrationsWithOneName) {
  test_support::TakeLog();
  EXPECT_EQ(RegisterExternalSTLib("TWICE", Opens), 0);
  EXPECT_NE(RegisterExternalSTLib("TWICE", Fails), 0);
  EXPECT_THAT(
      test_support::TakeLog(),
      testing::ElementsAre("error block type TWICE is already registered; the first one is kept"));
  EXPECT_EQ(corvane::RegisteredStLibraries().back().opener, &Opens);
}

TEST(StLibrary, RefusesNullPointers) {
  EXPECT_NE(RegisterExternalSTLib(nullptr, Opens), 0);
  EXPECT_NE(RegisterExternalSTLib("NONE", nullptr), 0);
}

TEST(StLibrary, EveryNewEnvironmentOpensTheTypes) {
  RegisterExternalSTLib("OPENED", Opens);
  const corvane::LuaEnvironment first;
  const corvane::LuaEnvironment second;
  lua_getglobal(second.state(), "opened");
  EXPECT_TRUE(lua_toboolean(second.state(), -1));
}

TEST(StLibrary, KnowsWhatAnAddinSaysOfAValue) {
  constexpr STValueMeaning kMeanings[] = {
      {"State", 0, "idle"}, {"State", 17, "busy"}, {nullptr, 0, nullptr}};
  DescribeExternalSTLibValues("DESCRIBED", kMeanings);
  EXPECT_EQ(corvane::ValueMeaning("DESCRIBED", "State", 17), "busy");
  EXPECT_EQ(corvane::ValueMeaning("DESCRIBED", "State", 0), "idle");
  EXPECT_EQ(corvane::ValueMeaning("DESCRIBED", "State", 17.5), "");
  EXPECT_EQ(corvane::ValueMeaning("DESCRIBED", "Other", 17), "");
  EXPECT_EQ(corvane::ValueMeaning("OTHER", "State", 17), "");
  DescribeExternalSTLibValues(nullptr, kMeanings);
  DescribeExternalSTLibValues("DESCRIBED", nullptr);
}

TEST(StLibrary, KnowsWhatAnAddinSaysOfAVariable) {
  constexpr STVariable kVariables[] = {{"Port", kSTInput, "modem"},
                                       {"Done", kSTOutput, nullptr},
                                       {"Odd", 7, ""},
                                       {nullptr, 0, nullptr}};
  DescribeExternalSTLibVariables("DESCRIBED", kVariables);
  const corvane::VariableDescription* port = corvane::FindVariableDescription("DESCRIBED", "Port");
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(port->direction, kSTInput);
  EXPECT_EQ(port->meaning, "modem");
  EXPECT_EQ(corvane::FindVariableDescription("DESCRIBED", "Done")->direction, kSTOutput);
  EXPECT_EQ(corvane::FindVariableDescription("DESCRIBED", "Done")->meaning, "");
  EXPECT_EQ(corvane::FindVariableDescription("DESCRIBED", "Odd")->direction, 0) << "not stated";
  EXPECT_EQ(corvane::FindVariableDescription("DESCRIBED", "Other"), nullptr);
  EXPECT_EQ(corvane::FindVariableDescription("OTHER", "Port"), nullptr);
  DescribeExternalSTLibVariables(nullptr, kVariables);
  DescribeExternalSTLibVariables("DESCRIBED", nullptr);
}

// CTest runs it in a separate process; in one process with the others it must come last.
TEST(ZStLibraryFailure, AnOpenerThatFailsIsAnErrorWithTheTypesName) {
  RegisterExternalSTLib("BROKEN", Fails);
  try {
    const corvane::LuaEnvironment environment;
    FAIL() << "no error";
  } catch (const corvane::LuaError& error) {
    EXPECT_THAT(error.what(), testing::StartsWith("block type BROKEN cannot be opened"));
  }
}

}  // namespace
