// SPDX-License-Identifier: MIT
#include "runtime/corvane/block_observer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/corvane/addin.h"
#include "runtime/corvane/value_text.h"
#include "tests/support/lua_host.h"

namespace {

using corvane::BlockObserver;
using corvane::BlockState;

class BlockObserverTest : public test_support::LuaHost {
 protected:
  /// The block types must be registered before the environment is created.
  static void SetUpTestSuite() { static const corvane::Addin addin(ADDIN_FILE); }

  static std::string Value(const BlockState& block, const std::string& variable) {
    for (const auto& state : block.variables) {
      if (state.name == variable) return state.value;
    }
    return "no " + variable;
  }
};

TEST_F(BlockObserverTest, ShowsTheBlocksThatAreCreatedAfterItsStart) {
  Run("early = SysProcessCreate.new()");
  BlockObserver observer(L());
  EXPECT_TRUE(observer.Read().empty());
  Run("first = SysProcessCreate.new() second = SEND_SMS.new()");
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].type, "SysProcessCreate");
  EXPECT_EQ(blocks[1].type, "SEND_SMS");
}

TEST_F(BlockObserverTest, ListsTheVariablesInTheOrderOfTheirDeclaration) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new()");
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 1u);
  std::vector<std::string> names;
  for (const auto& variable : blocks[0].variables) names.push_back(variable.name);
  EXPECT_THAT(names, testing::ElementsAre("Port", "Send", "Receiver", "Message", "Error", "State",
                                          "Sent", "Queue"));
}

TEST_F(BlockObserverTest, ShowsValuesAsAnEngineerWritesThem) {
  BlockObserver observer(L());
  Run("sms = SEND_SMS.new{Port = 3, Send = true, Message = 'pump 1'}\n"
      "inbox = READ_SMS.new{DateTime = 1700000000}\n"
      "empty = READ_SMS.new()");
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(Value(blocks[0], "Port"), "3");
  EXPECT_EQ(Value(blocks[0], "Send"), "TRUE");
  EXPECT_EQ(Value(blocks[0], "Sent"), "FALSE");
  EXPECT_EQ(Value(blocks[0], "Message"), "'pump 1'");
  EXPECT_EQ(Value(blocks[0], "Receiver"), "''");
  EXPECT_EQ(Value(blocks[1], "DateTime"), "2023-11-14 22:13:20 UTC");
  EXPECT_EQ(Value(blocks[2], "DateTime"), "-");
}

TEST_F(BlockObserverTest, ShowsTimesFarFromToday) {
  BlockObserver observer(L());
  Run("inbox = READ_SMS.new{DateTime = 4102444799}");
  EXPECT_EQ(Value(observer.Read().at(0), "DateTime"), "2099-12-31 23:59:59 UTC");
  Run("inbox.DateTime = 2 - 11644473600");
  EXPECT_EQ(Value(observer.Read().at(0), "DateTime"), "1601-01-01 00:00:02 UTC");
}

TEST_F(BlockObserverTest, ShowsWhatAStateMeans) {
  BlockObserver observer(L());
  Run("sms = SEND_SMS.new{State = 17, Error = 6} inbox = READ_SMS.new{State = 33, Error = 1}\n"
      "odd = SEND_SMS.new{State = 99, Port = 17}");
  const auto blocks = observer.Read();
  EXPECT_EQ(Value(blocks.at(0), "State"), "17 announcing the next PDU");
  EXPECT_EQ(Value(blocks.at(0), "Error"), "6 no answer in time");
  EXPECT_EQ(Value(blocks.at(1), "State"), "33 listing messages");
  EXPECT_EQ(Value(blocks.at(1), "Error"), "1 no such port, or not open");
  EXPECT_EQ(Value(blocks.at(2), "State"), "99");
  EXPECT_EQ(Value(blocks.at(2), "Port"), "17");
  EXPECT_EQ(Value(blocks.at(2), "Error"), "0");
}

TEST_F(BlockObserverTest, CutsATextThatIsTooLongToBeRead) {
  BlockObserver observer(L());
  constexpr std::size_t kMaximum = corvane::kLongestValueText;
  Run("fits = SEND_SMS.new{Message = ('x'):rep(1022)} long = SEND_SMS.new{Message = "
      "('x'):rep(40000)}");
  const auto blocks = observer.Read();
  EXPECT_EQ(Value(blocks.at(0), "Message"), "'" + std::string(kMaximum - 2, 'x') + "'");
  EXPECT_EQ(Value(blocks.at(1), "Message"), "'" + std::string(kMaximum - 4, 'x') + "...");
}

TEST_F(BlockObserverTest, NumbersBlocksInTheOrderOfTheirCreation) {
  BlockObserver observer(L());
  Run("a = SEND_SMS.new() b = SEND_SMS.new() a = nil");
  Collect();
  Run("c = SEND_SMS.new()");
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].number, 2);
  EXPECT_EQ(blocks[1].number, 3);
}

TEST_F(BlockObserverTest, FollowsAValueThatChanges) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new()");
  EXPECT_EQ(Value(observer.Read().at(0), "Message"), "''");
  Run("fb.Message = 'x'");
  EXPECT_EQ(Value(observer.Read().at(0), "Message"), "'x'");
}

TEST_F(BlockObserverTest, NeverShowsAPasswordOrItsLength) {
  BlockObserver observer(L());
  Run("a = SEND_EMAIL.new{Password = 's'} b = SEND_EMAIL.new{Password = 'a long secret'}\n"
      "c = SEND_EMAIL.new()");
  const auto blocks = observer.Read();
  EXPECT_EQ(Value(blocks.at(0), "Password"), "......");
  EXPECT_EQ(Value(blocks.at(1), "Password"), "......");
  EXPECT_EQ(Value(blocks.at(2), "Password"), "''");
}

TEST_F(BlockObserverTest, NamesABlockAfterTheProgramsVariable) {
  BlockObserver observer(L());
  Run("global = SEND_SMS.new()\n"
      "local shared = SEND_SMS.new()\n"
      "local deeper = SEND_SMS.new()\n"
      "local pumps = {left = SEND_SMS.new(), SEND_SMS.new()}\n"
      "local function helper() return deeper end\n"
      "station = {north = SEND_SMS.new()}\n"
      "nowhere = {[true] = SEND_SMS.new()}\n"
      "function cycle() return shared, helper, pumps end");
  std::vector<std::string> names;
  for (const auto& block : observer.Read()) names.push_back(block.name);
  EXPECT_THAT(names, testing::UnorderedElementsAre("global", "shared", "deeper", "pumps.left",
                                                   "pumps[1]", "station.north", "#7"));
}

TEST_F(BlockObserverTest, NamesABlockInFiveTablesAndNotInSix) {
  BlockObserver observer(L());
  Run("t = {a = {b = {c = {d = {fb = SEND_SMS.new(), e = {fb = SEND_SMS.new()}}}}}}");
  std::vector<std::string> names;
  for (const auto& block : observer.Read()) names.push_back(block.name);
  EXPECT_THAT(names, testing::UnorderedElementsAre("t.a.b.c.d.fb", testing::StartsWith("#")));
}

TEST_F(BlockObserverTest, NamesNoBlockAfterAThousandTables) {
  BlockObserver observer(L());
  Run("t = {} for i = 1, 1100 do t[i] = {} end t[500].fb = SEND_SMS.new() t[1100].fb = "
      "SEND_SMS.new()");
  std::vector<std::string> names;
  for (const auto& block : observer.Read()) names.push_back(block.name);
  EXPECT_THAT(names, testing::UnorderedElementsAre("t[500].fb", testing::StartsWith("#")));
}

TEST_F(BlockObserverTest, KeepsNoBlockAlive) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new() other = SEND_SMS.new()");
  EXPECT_EQ(observer.Read().size(), 2u);
  Run("fb = nil");
  Collect();
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].name, "other");
}

TEST_F(BlockObserverTest, LeavesOutABlockWhoseFinalizerWasCalledByHand) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new() debug.getmetatable(fb).__gc(fb)");
  EXPECT_TRUE(observer.Read().empty());
}

TEST_F(BlockObserverTest, SurvivesAProgramThatOverwritesTheTypesAndItsGlobals) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new() SEND_SMS = nil TYPES.StandardFB.SEND_SMS.Vars.Port = 5");
  EXPECT_EQ(observer.Read().at(0).variables.size(), 7u);
  Run("TYPES = 5 setmetatable(_G, {__index = function() error('strict') end})");
  const auto blocks = observer.Read();
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_TRUE(blocks[0].variables.empty());
}

TEST_F(BlockObserverTest, SurvivesATableThatContainsItself) {
  BlockObserver observer(L());
  Run("t = {} t.t = t t.fb = SEND_SMS.new() function cycle() return cycle, t end");
  EXPECT_THAT(observer.Read().at(0).name, testing::EndsWith("fb"));
}

TEST_F(BlockObserverTest, LeavesTheStackAsItWas) {
  BlockObserver observer(L());
  Run("fb = SEND_SMS.new()");
  const int top = lua_gettop(L());
  static_cast<void>(observer.Read());
  EXPECT_EQ(lua_gettop(L()), top);
}

}  // namespace
