// SPDX-License-Identifier: MIT
// plc.retain, as a program meets it.
#include "runtime/corvane/retained_values.h"

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "runtime/corvane/retain_json.h"
#include "tests/runtime/corvane/retain_program.h"

/// A block that counts its calls where a program does not see it.
class TallyFB : public StrictFB<TallyFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable() {
    using enum FBDirection;
    static const FBMetaEntry _entries[] = {{"Step", "DINT", kInput, "what a call adds"},
                                           {"Code", "STRING", kInput, "kept to itself", true},
                                           {"Q", "DINT", kOutput, "the count"},
                                           {"Count", "DINT", kRetained, "the count"},
                                           {nullptr, nullptr}};
    return _entries;
  }
  void Execute() override {
    SetValue("Count", GetInt("Count") + GetInt("Step"));
    SetValue("Q", GetInt("Count"));
  }
};
DECLARE_FUNCTION_BLOCK(TallyFB)
DEFINE_FUNCTION_BLOCK(TallyFB, "TALLY")
class OtherTallyFB : public StrictFB<OtherTallyFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable() { return TallyFB::GetMetaTable(); }
};
DECLARE_FUNCTION_BLOCK(OtherTallyFB)
DEFINE_FUNCTION_BLOCK(OtherTallyFB, "OTHER_TALLY")

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class RetainedValuesTest : public RetainTest {
 protected:
  static void SetUpTestSuite() {
    RegisterSTLibsTallyFB();
    RegisterSTLibsOtherTallyFB();
  }
};

TEST_F(RetainedValuesTest, ATableReturnsWithWhatWasKept) {
  const std::string text =
      "local t = plc.retain('pump', {starts = 0, name = 'P1', on = false, sub = {a = {1}}})\n"
      "t.starts = t.starts + 1 t.on = not t.on t.name = t.name .. '!' t.sub.a[2] = 'x'\n"
      "result = t.starts .. t.name .. tostring(t.on) .. #t.sub.a";
  EXPECT_EQ(Run(text), "1P1!true2");
  EXPECT_EQ(Run(text), "2P1!!false2");
  EXPECT_EQ(Run(text), "3P1!!!true2");
  EXPECT_THAT(test_support::TakeLog(), IsEmpty());
}

TEST_F(RetainedValuesTest, ItIsTheTableItselfThatIsFilled) {
  EXPECT_EQ(Run("local t = {} result = plc.retain('a', t) == t"), "true");
}

TEST_F(RetainedValuesTest, EveryKeyAndValueSurvivesExactly) {
  const std::string values =
      "{ [1] = 'one', [2] = 'two', [-3] = true, [1.5] = false, [true] = 0.1, [false] = -0.0,\n"
      "  [2^53] = 2^53, [1e300] = -1e-320, inf = 1/0, ninf = -1/0, ['a.b c'] = '', [''] = 5,\n"
      "  ['\\0\\255'] = '\\0\\1\\255', utf = 'Pumpe läuft ☃', ['$table'] = {}, ['$octets'] = "
      "{['$number'] "
      "= 'nan'},\n"
      "  list = {10, 20, {30}}, empty = {}, [math.pi] = math.pi, long = string.rep('x', 100000) }";
  Run("plc.retain('odd', " + values + ").nan = 0/0");
  EXPECT_EQ(Run("local expected = " + values + R"(
      local t = plc.retain('odd', {})
      result = ''
      local function compare(a, b, path)
        if type(a) ~= type(b) then result = result .. path .. ' ' return end
        if type(a) ~= 'table' then
          if a ~= b or (a == 0 and 1 / a ~= 1 / b) then result = result .. path .. ' ' end
          return
        end
        for k, v in pairs(a) do compare(v, b[k], path .. '.' .. tostring(k)) end
        for k in pairs(b) do if a[k] == nil then result = result .. path .. '+' .. tostring(k) end end
      end
      if t.nan == t.nan then result = 'no nan' end
      t.nan = nil
      compare(expected, t, ''))"),
            "");
}

TEST_F(RetainedValuesTest, KeysOfTheProgramStayAndKeptOnesAreAdded) {
  Run("plc.retain('t', {old = 1, list = {1, 2, 3}})");
  EXPECT_EQ(Run("local t = plc.retain('t', {new = 2, list = {9}})\n"
                "result = t.old .. t.new .. table.concat(t.list)"),
            "12123");
}

TEST_F(RetainedValuesTest, AValueOfAnotherTypeIsReportedAndTheProgramsOwnStays) {
  Run("plc.retain('t', {a = 1, b = 'x', c = {1}, d = {x = {y = 1}}, e = true})");
  EXPECT_EQ(
      Run("local t = plc.retain('t', {a = '1', b = {}, c = 5, d = {x = {y = false}}, e = false})\n"
          "result = t.a .. #t.b .. t.c .. tostring(t.d.x.y) .. tostring(t.e)"),
      "105falsetrue");
  const auto log = test_support::TakeLog();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_THAT(log[0], HasSubstr("warning retained values of another type than the program's own"));
  for (const char* path : {"t.a", "t.b", "t.c", "t.d.x.y"}) EXPECT_THAT(log[0], HasSubstr(path));
  EXPECT_THAT(log[0], Not(HasSubstr("t.e")));
}

TEST_F(RetainedValuesTest, ANameThatIsNotRetainedInThisRunStaysInTheFile) {
  Run("plc.retain('a', {1}) plc.retain('b', {2})");
  Run("plc.retain('b', {3})");
  EXPECT_EQ(Run("result = plc.retain('a', {})[1] .. plc.retain('b', {})[1]"), "12");
}

TEST_F(RetainedValuesTest, ANameMayBeRetainedInALaterCycle) {
  const std::string text =
      "result = 'none' function cycle() if plc.cycle == 3 then\n"
      "result = plc.retain('late', {n = 0}) result.n = result.n + 1 end end";
  Run(text, 5);
  Run(text, 1);
  Run("plc.retain('other', {})");
  EXPECT_EQ(Run("result = plc.retain('late', {}).n"), "1");
}

TEST_F(RetainedValuesTest, WhatCannotBeRetainedIsAnErrorThatNamesThePath) {
  const std::pair<const char*, const char*> rows[] = {
      {"{f = print}", "plc.retain: t.f is a function; only booleans"},
      {"{a = {b = {[3] = function() end}}}", "plc.retain: t.a.b[3] is a function"},
      {"{co = coroutine.create(print)}", "plc.retain: t.co is a thread"},
      {"{a = {io.stdout}}", "plc.retain: t.a[1] is a userdata"},
      {"{fb = TALLY.new()}", "plc.retain: t.fb is a userdata; a table may hold"},
      {"{[print] = 1}", "plc.retain: t[function] has a key that is neither"},
      {"{[{}] = 1}", "plc.retain: t[table] has a key"},
      {"(function() local t = {a = {}} t.a.b = t return t end)()",
       "plc.retain: t.a.b is a table that contains itself"},
      {"(function() local t = {} for i = 1, 200 do t = {t} end return t end)()",
       "[1] is a table inside too many others"},
      {"{x = string.rep('x', 2^24 + 1)}", "plc.retain: t.x makes the retained values larger"},
      {"(function() local t = {} for i = 1, 2^20 do t[i] = i end return t end)()",
       "] makes the retained values larger than 16 MB"},
      {"5", "bad argument #2 to 'retain' (a table or a block expected, got number)"},
      {"nil", "a table or a block expected, got nil"},
      {"io.stdout", "a table or a block expected, got userdata"},
  };
  for (const auto& [value, message] : rows) {
    EXPECT_THAT(ErrorOf("plc.retain('t', " + std::string(value) + ")"), HasSubstr(message))
        << value;
  }
}

TEST_F(RetainedValuesTest, ATableMayOccurTwiceWithoutContainingItself) {
  EXPECT_EQ(Run("local s = {1} plc.retain('t', {s, s}) result = 'ok'"), "ok");
}

TEST_F(RetainedValuesTest, ANameIsATextThatIsUsedOnce) {
  EXPECT_THAT(ErrorOf("plc.retain('t', {}) plc.retain('t', {})"),
              EndsWith("plc.retain: the name 't' is used twice"));
  for (const char* name : {"''", "'\\255'", "5", "nil", "{}"}) {
    EXPECT_THAT(ErrorOf("plc.retain(" + std::string(name) + ", {})"),
                HasSubstr("bad argument #1 to 'retain'"))
        << name;
  }
}

TEST_F(RetainedValuesTest, ARefusedValueMayBeReplacedByAnother) {
  EXPECT_EQ(Run("local ok = pcall(plc.retain, 't', {print}) plc.retain('t', {7}) result = ok"),
            "false");
  EXPECT_EQ(Run("result = plc.retain('t', {})[1]"), "7");
}

TEST_F(RetainedValuesTest, AFunctionThatIsStoredLaterEndsTheCycleThatDoesIt) {
  EXPECT_THAT(ErrorOf("local t = plc.retain('t', {n = 1}) function cycle() t.f = print end"),
              HasSubstr("plc.retain: t.f is a function"));
  EXPECT_THAT(test_support::TakeLog(),
              ElementsAre(HasSubstr("error the retained values are those of up to a second ago")));
}

TEST_F(RetainedValuesTest, MetatablesPlayNoPart) {
  Run("plc.retain('t', setmetatable({1}, {__index = error, __pairs = error, __len = error}))");
  EXPECT_EQ(Run("local t = setmetatable({}, {__newindex = error, __index = error})\n"
                "plc.retain('t', t) result = rawget(t, 1)"),
            "1");
}

TEST_F(RetainedValuesTest, ABlockGoesOnWhereItWas) {
  const std::string text =
      "local b = plc.retain('tally', TALLY.new{Step = 2, Code = 'secret'})\n"
      "function cycle() b() result = b.Q .. b.Code end";
  EXPECT_EQ(Run(text, 3), "6secret");
  EXPECT_EQ(Run(text, 3), "12secret");
  EXPECT_THAT(Content(), HasSubstr(R"("$block":"TALLY")"));
  EXPECT_THAT(Content(), Not(HasSubstr("secret")));
  EXPECT_THAT(test_support::TakeLog(), IsEmpty());
}

TEST_F(RetainedValuesTest, AnotherTypeOfBlockOrATableInItsPlaceKeepsItsOwnValues) {
  Run("plc.retain('a', TALLY.new{Step = 5}) plc.retain('b', {Step = 5}) plc.retain('c', "
      "TALLY.new())");
  EXPECT_EQ(Run("local a, b = plc.retain('a', OTHER_TALLY.new()), plc.retain('b', TALLY.new())\n"
                "local c = plc.retain('c', {n = 1}) result = a.Step .. b.Step .. c.n"),
            "001");
  EXPECT_THAT(test_support::TakeLog(),
              ElementsAre(EndsWith(": a"), EndsWith(": b"), EndsWith(": c")));
}

TEST_F(RetainedValuesTest, ABlockWhoseVariableHasAnotherTypeNowKeepsItsOwnValue) {
  Run("plc.retain('tally', TALLY.new{Step = 3})");
  auto values = nlohmann::json::parse(
      R"({"tally": {"$block": "TALLY", "variables": {"Step": "x", "Count": 1e300, "Gone": 1, "Q": 4}}})");
  std::ofstream(file()) << RetainFileText(values);
  EXPECT_EQ(Run("local t = plc.retain('tally', TALLY.new{Step = 8}) result = t.Step .. t.Q"), "84");
  EXPECT_THAT(test_support::TakeLog(), ElementsAre(EndsWith(": tally.Step, tally.Count")));
}

TEST_F(RetainedValuesTest, ABlockThatTheProgramHasDestroyedIsAnError) {
  EXPECT_THAT(ErrorOf("local b = plc.retain('b', TALLY.new())\n"
                      "function cycle() getmetatable(b).__gc(b) end"),
              HasSubstr("bad argument"));
}

TEST_F(RetainedValuesTest, WithoutAStoreEveryProgramStartsWithItsOwnValues) {
  const std::string text = "local t = plc.retain('t', {n = 0}) t.n = t.n + 1 result = t.n";
  EXPECT_EQ(RunWith(nullptr, text), "1");
  EXPECT_EQ(RunWith(nullptr, text), "1");
  EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(RetainedValuesTest, AProgramThatRetainsNothingTouchesNothing) {
  Run("result = 1", 3);
  EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(RetainedValuesTest, WhatACycleLeavesIsKeptAlsoWhenALaterOneFails) {
  EXPECT_THAT(ErrorOf("local t = plc.retain('t', {n = 0}) function cycle() t.n = plc.cycle\n"
                      "if plc.cycle == 3 then error('broken') end end",
                      3),
              HasSubstr("broken"));
  EXPECT_EQ(Run("result = plc.retain('t', {}).n"), "3");
}

TEST_F(RetainedValuesTest, TenMegabytesSurvive) {
  Run("local t = plc.retain('t', {}) t.text = string.rep('0123456789', 2^20)\n"
      "for i = 1, 10000 do t[i] = i end");
  EXPECT_EQ(Run("local t = plc.retain('t', {}) result = #t.text .. ' ' .. #t"), "10485760 10000");
}

TEST_F(RetainedValuesTest, AFileThatIsNotOfOursDoesNoHarm) {
  for (const char* values :
       {R"({"t": 5})", R"({"t": null})", R"({"t": {"$block": 5, "variables": 3}})",
        R"({"t": {"$block": "TALLY"}})",
        R"({"t": {"$table": [[1], 2, [null, 3], [{"$number": "nan"}, 4]]}})",
        R"({"t": {"$table": 5}})", R"({"t": {"a": {"$octets": "0"}, "b": {"$octets": "zz"}}})",
        R"({"t": {"a": {"$number": "x"}, "b": null, "c": {"$octets": 5}}})"}) {
    std::filesystem::create_directories(state());
    std::ofstream(file()) << RetainFileText(nlohmann::json::parse(values));
    EXPECT_EQ(Run("local t = plc.retain('t', {own = 1}) result = t.own"), "1") << values;
  }
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "[";
  for (int i = 0; i < 5000; ++i) deep += "]";
  std::ofstream(file()) << RetainFileText(nlohmann::json::parse("{\"t\": " + deep + "}"));
  test_support::TakeLog();
  EXPECT_EQ(Run("plc.retain('t', {}) result = 1", 0), "1");
  EXPECT_THAT(test_support::TakeLog(), ElementsAre(HasSubstr("it is nested too deeply")));
}

}  // namespace
}  // namespace corvane
