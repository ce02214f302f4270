// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/variable_sampler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>

#include "runtime/bench/sampling/variable_model.h"
#include "runtime/corvane/addin.h"
#include "tests/support/lua_host.h"

namespace {

using corvane::bench::LongText;
using corvane::bench::Node;
using corvane::bench::NodeKind;
using corvane::bench::Value;
using corvane::bench::VariableChanges;
using corvane::bench::VariableModel;
using corvane::bench::VariableSampler;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kNever = std::chrono::steady_clock::time_point::max();
constexpr auto kAtOnce = std::chrono::steady_clock::time_point::min();

class VariableSamplerTest : public test_support::LuaHost {
 protected:
  static void SetUpTestSuite() { static const corvane::Addin addin(ADDIN_FILE); }

  /// One whole pass.
  VariableChanges Pass() {
    VariableChanges changes;
    EXPECT_TRUE(sampler_.Sample(changes, kNever));
    model_.Apply(changes);
    return changes;
  }
  std::optional<Value> At(const std::string& path) {
    for (const auto& [id, value] : model_.Complete().values) {
      if (model_.Path(id) == path) return value;
    }
    return std::nullopt;
  }
  const Node* NodeAt(const std::string& path) {
    for (const Node& node : model_.Complete().added) {
      if (model_.Path(node.id) == path) return model_.Find(node.id);
    }
    return nullptr;
  }
  corvane::bench::NodeId IdOf(const std::string& path) {
    const Node* const node = NodeAt(path);
    return node == nullptr ? 0 : node->id;
  }
  /// A global, without the help of a chunk.
  double Number(const char* name) {
    lua_pushglobaltable(L());
    lua_pushstring(L(), name);
    lua_rawget(L(), -2);
    const double number = lua_tonumber(L(), -1);
    lua_pop(L(), 2);
    return number;
  }

  VariableSampler sampler_{L()};
  VariableModel model_;
};

TEST_F(VariableSamplerTest, ShowsGlobalsOfEachPlainTypeAndTables) {
  Run("level = 2.5 on = true name = 'pump' recipe = {steps = {10, 20}, [true] = 'yes'}");
  Pass();
  EXPECT_EQ(At("level"), Value(2.5));
  EXPECT_EQ(At("on"), Value(true));
  EXPECT_EQ(At("name"), Value(std::string("pump")));
  EXPECT_EQ(At("recipe.steps[2]"), Value(20.0));
  EXPECT_EQ(At("recipe[true]"), Value(std::string("yes")));
  ASSERT_NE(NodeAt("recipe"), nullptr);
  EXPECT_EQ(NodeAt("recipe")->kind, NodeKind::kTable);
}

TEST_F(VariableSamplerTest, LeavesLibrariesOut) {
  Run("local s = string function cycle() return s end copy = math");
  Pass();
  EXPECT_THAT(model_.Complete().added, IsEmpty());
}

TEST_F(VariableSamplerTest, ShowsUpvaluesOfCycleAndOfTheFunctionsItUses) {
  Run("local count = 1 local inner = 2\n"
      "local function helper() inner = inner + 1 end\n"
      "function cycle() count = count + 1 helper() end");
  Pass();
  EXPECT_EQ(At("count"), Value(1.0));
  EXPECT_EQ(At("inner"), Value(2.0));
  Run("cycle()");
  EXPECT_EQ(Pass().values.size(), 2u);
  EXPECT_EQ(At("count"), Value(2.0));
  EXPECT_EQ(At("inner"), Value(3.0));
}

TEST_F(VariableSamplerTest, ReportsOnlyWhatHasChanged) {
  Run("a = 1 b = 0/0 c = 'text' d = {}");
  Pass();
  EXPECT_TRUE(Pass().empty());
  Run("c = 'other'");
  const VariableChanges changes = Pass();
  ASSERT_EQ(changes.values.size(), 1u);
  EXPECT_EQ(changes.values[0].second, Value(std::string("other")));
  EXPECT_THAT(changes.added, IsEmpty());
}

TEST_F(VariableSamplerTest, RemovesWhatHasGone) {
  Run("t = {x = {y = 1}} z = 1");
  Pass();
  Run("t = nil");
  EXPECT_EQ(Pass().removed.size(), 3u);
  EXPECT_EQ(model_.Complete().added.size(), 1u);
}

TEST_F(VariableSamplerTest, AVariableOfAnotherTypeIsAnotherNode) {
  Run("v = 1");
  Pass();
  const auto before = IdOf("v");
  Run("v = 'one'");
  Pass();
  EXPECT_NE(IdOf("v"), before);
  ASSERT_NE(NodeAt("v"), nullptr);
  EXPECT_EQ(NodeAt("v")->type, "string");
  EXPECT_EQ(model_.Complete().added.size(), 1u);
}

TEST_F(VariableSamplerTest, ShowsABlockWithItsDeclaredVariables) {
  Run("sms = SEND_SMS.new{Port = 3, Message = 'hello'}");
  Pass();
  ASSERT_NE(NodeAt("sms"), nullptr);
  EXPECT_EQ(NodeAt("sms")->kind, NodeKind::kBlock);
  EXPECT_EQ(NodeAt("sms")->type, "SEND_SMS");
  EXPECT_EQ(At("sms.Port"), Value(3.0));
  EXPECT_EQ(NodeAt("sms.Send")->type, "BOOL");
  EXPECT_EQ(At("sms.Message"), Value(std::string("hello")));
  Run("sms.Port = 4");
  const VariableChanges changes = Pass();
  ASSERT_EQ(changes.values.size(), 1u);
  EXPECT_EQ(changes.values[0].first, IdOf("sms.Port"));
}

TEST_F(VariableSamplerTest, ANewBlockInTheSameVariableIsAnotherNode) {
  Run("sms = SEND_SMS.new() old = {sms}");
  Pass();
  const auto before = IdOf("sms");
  Run("sms = SEND_SMS.new{Port = 5}");
  Pass();
  EXPECT_NE(IdOf("sms"), before);
  EXPECT_EQ(model_.Find(before), nullptr);
  EXPECT_EQ(At("sms.Port"), Value(5.0));
  EXPECT_NE(NodeAt("old[1]"), nullptr);
}

TEST_F(VariableSamplerTest, ABlockInSeveralVariablesIsShownOnce) {
  Run("sms = SEND_SMS.new() all = {sms}");
  Pass();
  EXPECT_NE(NodeAt("sms"), nullptr);
  EXPECT_EQ(NodeAt("all[1]"), nullptr);
}

TEST_F(VariableSamplerTest, BlocksThatNoVariableHoldsAreShownApart) {
  Run("local sms = SEND_SMS.new{Port = 7} debug.getregistry().hidden = sms");
  Pass();
  EXPECT_EQ(At("(not reached).#1.Port"), Value(7.0));
}

TEST_F(VariableSamplerTest, SecretsAreNeverRead) {
  Run("mail = SEND_EMAIL.new{Password = 's3cret'} PIN = '1234' smtp_password = 'x' "
      "cfg = {Token = 'y', SimPin = 1, spin = 2, passwords = {'z'}}");
  const VariableChanges changes = Pass();
  for (const auto& [id, value] : changes.values) {
    for (const char* secret : {"s3cret", "1234", "x", "y", "z"}) {
      EXPECT_NE(value, Value(std::string(secret)));
    }
    EXPECT_NE(value, Value(1.0));
  }
  for (const char* path :
       {"mail.Password", "PIN", "smtp_password", "cfg.Token", "cfg.SimPin", "cfg.passwords"}) {
    ASSERT_NE(NodeAt(path), nullptr) << path;
    EXPECT_TRUE(NodeAt(path)->secret) << path;
    EXPECT_FALSE(NodeAt(path)->writable) << path;
    Value value;
    EXPECT_EQ(sampler_.Read(IdOf(path), value), "the variable is a secret") << path;
    EXPECT_EQ(value, Value()) << path;
    EXPECT_NE(sampler_.Write(IdOf(path), Value(std::string("new"))), "") << path;
  }
  EXPECT_EQ(At("cfg.spin"), Value(2.0));
}

TEST_F(VariableSamplerTest, RunsNeitherMetamethodsNorHooks) {
  Run("ran = 0 local function note() ran = ran + 1 end\n"
      "guarded = setmetatable({x = 1}, {__index = note, __pairs = note, __newindex = note,\n"
      "  __len = note, __tostring = note})\n"
      "mail = SEND_EMAIL.new()\n"
      "setmetatable(_G, {__index = note, __newindex = note})\n"
      "debug.sethook(note, 'crl', 1)");
  const double ran = Number("ran");
  Pass();
  EXPECT_EQ(sampler_.Write(IdOf("guarded.x"), Value(2.0)), "");
  Pass();
  EXPECT_EQ(Number("ran"), ran);
  EXPECT_EQ(At("guarded.x"), Value(2.0));
}

TEST_F(VariableSamplerTest, StartsNoFinalizer) {
  Run("finalized = 0 collectgarbage('stop')\n"
      "collectgarbage('setpause', 0) collectgarbage('setstepmul', 1000000)\n"
      "many = {} for i = 1, 200 do many[i] = SEND_SMS.new{Message = ('x'):rep(1000) .. i} end\n"
      "for i = 1, 100 do setmetatable({}, {__gc = function() finalized = finalized + 1 end}) end");
  lua_gc(L(), LUA_GCRESTART, 0);
  const double before = Number("finalized");
  VariableChanges changes;
  EXPECT_TRUE(sampler_.Sample(changes, kNever));
  EXPECT_EQ(Number("finalized"), before);
  EXPECT_EQ(lua_gc(L(), LUA_GCISRUNNING, 0), 1);
}

TEST_F(VariableSamplerTest, GoesOnInTheNextCycleWhereItsTimeEnded) {
  Run("t = {} for i = 1, 1000 do t[i] = i end\n"
      "blocks = {} for i = 1, 50 do blocks[i] = SEND_SMS.new() end");
  int cycles = 1;
  VariableChanges changes;
  while (!sampler_.Sample(changes, kAtOnce)) ++cycles;
  EXPECT_GT(cycles, 50);
  model_.Apply(changes);
  EXPECT_EQ(At("t[1000]"), Value(1000.0));
  EXPECT_NE(NodeAt("blocks[50].Queue"), nullptr);
  EXPECT_TRUE(Pass().empty());
}

TEST_F(VariableSamplerTest, ATableThatChangesBetweenTwoCyclesOfAPassDoesNoHarm) {
  Run("t = {} for i = 1, 300 do t['k' .. i] = i end last = 'here'\n"
      "function churn() local names = {} for k in pairs(t) do names[#names + 1] = k end\n"
      "  for _, k in ipairs(names) do t[k] = nil end\n"
      "  for i = 1, 300 do t[{}] = 1 t['n' .. i .. '_' .. math.random(1e9)] = i end end");
  VariableChanges changes;
  int cycle = 0;
  for (; !sampler_.Sample(changes, kAtOnce); ++cycle) {
    if (cycle % 10 == 5 && cycle < 100) {
      Run("churn()");
      Collect();
    }
    ASSERT_LT(cycle, 100000);
  }
  model_.Apply(changes);
  Run("t = nil churn = nil");
  Pass();
  EXPECT_EQ(At("last"), Value(std::string("here")));
  EXPECT_EQ(model_.Complete().added.size(), 1u);
}

TEST_F(VariableSamplerTest, TablesInThemselvesAndDeepOnesAreCut) {
  Run("a = {} a.self = a a.up = _G\n"
      "local t = {} deep = t for i = 1, 50 do t.next = {} t = t.next end");
  const VariableChanges changes = Pass();
  EXPECT_LE(changes.added.size(), 12u);
  EXPECT_TRUE(changes.truncated);
}

TEST_F(VariableSamplerTest, TooManyVariablesAreCutAndThatIsReported) {
  Run("t = {} for i = 1, 20000 do t[i] = i end");
  const VariableChanges changes = Pass();
  EXPECT_EQ(changes.added.size(), static_cast<std::size_t>(VariableSampler::kMostNodes));
  EXPECT_TRUE(changes.truncated);
  Run("t = nil");
  EXPECT_FALSE(Pass().truncated);
}

TEST_F(VariableSamplerTest, ALongTextComesShortenedAndAChangeAtItsEndIsSeen) {
  Run("text = ('x'):rep(39999) .. 'y'");
  Pass();
  const auto value = At("text");
  ASSERT_TRUE(value && std::holds_alternative<LongText>(*value));
  EXPECT_EQ(std::get<LongText>(*value).length, 40000u);
  EXPECT_EQ(std::get<LongText>(*value).beginning.size(), corvane::bench::kLongestText);
  Run("text = ('x'):rep(40000)");
  EXPECT_EQ(Pass().values.size(), 1u);
  Value whole;
  EXPECT_EQ(sampler_.Read(IdOf("text"), whole), "");
  EXPECT_EQ(whole, Value(std::string(40000, 'x')));
}

TEST_F(VariableSamplerTest, WritesGlobalsFieldsUpvaluesAndInputs) {
  Run("level = 1 t = {{on = false}} local set = 'a' function cycle() return set end "
      "sms = SEND_SMS.new()");
  Pass();
  EXPECT_EQ(sampler_.Write(IdOf("level"), Value(std::int64_t{5})), "");
  EXPECT_EQ(sampler_.Write(IdOf("t[1].on"), Value(true)), "");
  EXPECT_EQ(sampler_.Write(IdOf("set"), Value(std::string("b"))), "");
  EXPECT_EQ(sampler_.Write(IdOf("sms.Port"), Value(9.0)), "");
  EXPECT_EQ(Eval("level"), "5");
  EXPECT_EQ(Eval("t[1].on"), "true");
  EXPECT_EQ(Eval("cycle()"), "b");
  EXPECT_EQ(Eval("sms.Port"), "9");
}

TEST_F(VariableSamplerTest, RefusesWritesOfAnotherTypeOutOfRangeOrToWhatHasGone) {
  Run("level = 1 sms = SEND_SMS.new{Port = 2} t = {x = 1}");
  Pass();
  EXPECT_EQ(sampler_.Write(IdOf("level"), Value(std::string("5"))), "the variable takes a number");
  EXPECT_EQ(sampler_.Write(IdOf("sms.Send"), Value(1.0)), "the variable takes TRUE or FALSE");
  EXPECT_THAT(sampler_.Write(IdOf("sms.Port"), Value(1e300)), HasSubstr("out of range"));
  EXPECT_EQ(sampler_.Write(IdOf("t"), Value(1.0)), "this is not a single variable");
  EXPECT_EQ(sampler_.Write(0, Value(1.0)), "the variable has gone");
  EXPECT_EQ(sampler_.Write(99999, Value(1.0)), "the variable has gone");
  const auto gone = IdOf("t.x");
  Run("t.x = nil");
  EXPECT_EQ(sampler_.Write(gone, Value(1.0)), "the variable has gone");
  EXPECT_EQ(Eval("level"), "1");
  EXPECT_EQ(Eval("sms.Port"), "2");
  EXPECT_EQ(Eval("t.x"), "nil");
}

TEST_F(VariableSamplerTest, ATextOfMegabytesIsNotReadWhole) {
  Run("big = ('x'):rep(1048576)");
  Pass();
  Value value;
  EXPECT_EQ(sampler_.Read(IdOf("big"), value), "");
  ASSERT_TRUE(std::holds_alternative<LongText>(value));
  EXPECT_EQ(std::get<LongText>(value).length, 1u << 20U);
}

TEST_F(VariableSamplerTest, ALongTextIsNotCutWithinACharacter) {
  Run("long = 'x' .. ('🌊'):rep(2000)");
  Pass();
  const auto value = At("long");
  ASSERT_TRUE(value && std::holds_alternative<LongText>(*value));
  EXPECT_EQ(std::get<LongText>(*value).beginning.size(), 4093u);
}

TEST_F(VariableSamplerTest, AFunctionWithLongTextsIsReadOverSeveralCycles) {
  Run("local a, b, c = ('x'):rep(5000), ('y'):rep(5000), ('z'):rep(5000)\n"
      "function cycle() return a, b, c end");
  VariableChanges changes;
  int cycles = 1;
  while (!sampler_.Sample(changes, kAtOnce)) ++cycles;
  EXPECT_GE(cycles, 4);
  EXPECT_EQ(changes.values.size(), 3u);
}

TEST_F(VariableSamplerTest, TablesThatAreMadeInEachCycleAreShownWithinTheLimits) {
  // At full speed the collector would take half a minute for so many tables, in an emulator ten.
  lua_gc(L(), LUA_GCSETPAUSE, 200);
  Run("n = 0 function cycle() t = {} for i = 1, 5000 do n = n + 1 t[n] = {x = n} end end cycle()");
  Pass();
  EXPECT_NE(IdOf("t"), 0);
  for (int pass = 0; pass < 5; ++pass) {
    VariableChanges changes;
    bool ended = false;
    for (int i = 0; i < 20 && !ended; ++i) {
      Run("cycle()");
      ended = sampler_.Sample(changes, std::chrono::steady_clock::now());
    }
    model_.Apply(changes);
    ASSERT_LE(model_.Complete().added.size(), 10000u);
  }
  Run("t = nil");
  for (int pass = 0; pass < 2; ++pass) {
    VariableChanges changes;
    while (!sampler_.Sample(changes, kNever)) {
    }
    model_.Apply(changes);
  }
  EXPECT_EQ(model_.Complete().added.size(), 1u) << "n";
}

TEST_F(VariableSamplerTest, WhatIsForgottenIsFreedByTheCaller) {
  Run("for i = 1, 9000 do _G['v' .. i] = i end");
  Pass();
  const std::shared_ptr<void> known = sampler_.Reset();
  EXPECT_EQ(known.use_count(), 1);
  EXPECT_EQ(Pass().added.size(), 9000u);
}

TEST_F(VariableSamplerTest, CountsBlocksOverSeveralCycles) {
  Run("for i = 1, 200 do _G['b' .. i] = SEND_SMS.new() end");
  corvane::bench::BlockCounts counts;
  int cycles = 1;
  while (!sampler_.CountBlocks(counts, kAtOnce)) ++cycles;
  EXPECT_GE(cycles, 3);
  EXPECT_EQ(counts["SEND_SMS"], 200u);
}

TEST_F(VariableSamplerTest, BlocksThatComeAndGoDoNotDisturbTheCount) {
  Run("b = {} function cycle() b = {} for i = 1, 500 do b[i] = SEND_SMS.new() end end cycle()");
  corvane::bench::BlockCounts counts;
  for (int cycle = 0; cycle < 50; ++cycle) {
    static_cast<void>(sampler_.CountBlocks(counts, kAtOnce));
    Run("cycle() collectgarbage()");
  }
  while (!sampler_.CountBlocks(counts, kNever)) {
  }
  static_cast<void>(sampler_.CountBlocks(counts, kNever));
  EXPECT_EQ(counts["SEND_SMS"], 500u);
}

TEST_F(VariableSamplerTest, KeepsNoBlockAlive) {
  Run("weak = setmetatable({}, {__mode = 'v'}) holder = SEND_SMS.new() weak[1] = holder");
  Pass();
  VariableChanges changes;
  static_cast<void>(sampler_.Sample(changes, kAtOnce));
  Run("holder = nil");
  Collect();
  EXPECT_EQ(Eval("weak[1]"), "nil");
  while (!sampler_.Sample(changes, kNever)) {
  }
  model_.Apply(changes);
  Pass();
  EXPECT_EQ(NodeAt("holder"), nullptr);
}

TEST_F(VariableSamplerTest, AfterAResetEverythingIsReportedAgain) {
  Run("a = 1 sms = SEND_SMS.new()");
  const VariableChanges first = Pass();
  static_cast<void>(sampler_.Reset());
  const VariableChanges second = Pass();
  EXPECT_EQ(second.added.size(), first.added.size());
  EXPECT_EQ(second.values.size(), first.values.size());
  EXPECT_GT(second.added[0].id, first.added.back().id);
}

}  // namespace
