// SPDX-License-Identifier: MIT
// What every block inherits from its base, as the block's own code and Lua see it.
#include "block/base_fb.h"

#include <limits>

#include "tests/include/block/probe_fb.h"

namespace {

class BaseFb : public ProbeTest {
 protected:
  ProbeFB& fb() { return *ProbeFB::last; }
  OpcUa_BuiltInType TypeOf(const char* name) {
    return static_cast<OpcUa_BuiltInType>(fb().Find(name).Datatype);
  }
};

TEST_F(BaseFb, DeclaredVariablesHaveTheirTypeAndReadNull) {
  EXPECT_EQ(TypeOf("Bool"), OpcUaType_Boolean);
  EXPECT_EQ(TypeOf("Int"), OpcUaType_Int16);
  EXPECT_EQ(TypeOf("DInt"), OpcUaType_Int32);
  EXPECT_EQ(TypeOf("String"), OpcUaType_String);
  EXPECT_EQ(TypeOf("Time"), OpcUaType_DateTime);
  EXPECT_EQ(Eval("fb.Bool"), "false");
  EXPECT_EQ(Eval("fb.Int"), "0");
  EXPECT_EQ(Eval("fb.DInt"), "0");
  EXPECT_EQ(Eval("fb.String == ''"), "true");
  EXPECT_EQ(Eval("fb.Time"), "0");
}

TEST_F(BaseFb, VariableNamesAreCaseSensitive) {
  Run("fb.DInt = 7");
  EXPECT_EQ(Eval("fb.dint"), "nil");
  EXPECT_EQ(Eval("fb.DInt"), "7");
}

TEST_F(BaseFb, ReadingAnUnknownNameCreatesANullEntryAndReadsTheSameAgain) {
  EXPECT_EQ(Eval("fb.Unknown"), "nil");
  EXPECT_EQ(Eval("fb.Unknown"), "nil");
  EXPECT_EQ(TypeOf("Unknown"), OpcUaType_Null);
}

TEST_F(BaseFb, InternalReadsTrue) {
  EXPECT_EQ(Eval("fb.__Internal"), "true");
}

TEST_F(BaseFb, EnOReadsTrueAndIgnoresAssignments) {
  Run("fb.EnO = false");
  EXPECT_EQ(Eval("fb.EnO"), "true");
  EXPECT_EQ(TypeOf("EnO"), OpcUaType_Null) << "the assignment created an entry";
}

TEST_F(BaseFb, EnOAssignmentIsNotEvenConverted) {
  EXPECT_NO_THROW(Run("fb.EnO = {}"));
}

TEST_F(BaseFb, GettersOfAnUnknownNameReturnNull) {
  EXPECT_FALSE(fb().GetBool("none"));
  EXPECT_EQ(fb().GetInt("none"), 0);
  EXPECT_EQ(fb().GetString("none"), "");
}

TEST_F(BaseFb, SettersOfAnUnknownNameCreateIt) {
  fb().SetValue("made", 3);
  EXPECT_EQ(Eval("fb.made"), "3");
}

TEST_F(BaseFb, GetBoolOfTextIsTrueForThreeSpellingsOnly) {
  for (const char* text : {"true", "True", "TRUE"}) {
    Run("fb.String = '" + std::string(text) + "'");
    EXPECT_TRUE(fb().GetBool("String")) << text;
  }
  for (const char* text : {"yes", "1", "tRUE", "true ", "", "TRUEx"}) {
    Run("fb.String = '" + std::string(text) + "'");
    EXPECT_FALSE(fb().GetBool("String")) << text;
  }
  Run("fb.String = 'true\\0'");
  EXPECT_FALSE(fb().GetBool("String"));
}

TEST_F(BaseFb, GetBoolOfNumbersIsTrueUnlessZero) {
  for (const char* name : {"SInt", "USInt", "Int", "UInt", "DInt", "UDInt", "LInt", "ULInt"}) {
    EXPECT_FALSE(fb().GetBool(name)) << name;
    Run("fb." + std::string(name) + " = 100");
    EXPECT_TRUE(fb().GetBool(name)) << name;
  }
  Run("fb.LInt = 2^40");  // the low half alone is zero
  EXPECT_TRUE(fb().GetBool("LInt"));
  Run("fb.LReal = -0.5");
  EXPECT_TRUE(fb().GetBool("LReal"));
}

TEST_F(BaseFb, GetBoolOfAShortIntegerTestsTheWhole32BitSlot) {
  fb().Find("USInt").Value.UInt32 = 0x100;
  EXPECT_TRUE(fb().GetBool("USInt"));
}

TEST_F(BaseFb, AFloatIsNeverTrueAndAlwaysZero) {
  Run("fb.Real = 1.5");
  EXPECT_FALSE(fb().GetBool("Real"));
  EXPECT_EQ(fb().GetInt("Real"), 0);
  EXPECT_EQ(fb().GetString("Real"), "1.5");
}

TEST_F(BaseFb, ATimeIsNeitherTrueNorANumberNorText) {
  Run("fb.Time = 1000");
  EXPECT_FALSE(fb().GetBool("Time"));
  EXPECT_EQ(fb().GetInt("Time"), 0);
  EXPECT_EQ(fb().GetString("Time"), "");
}

TEST_F(BaseFb, GetIntZeroExtendsBytesAndSignExtendsWords) {
  Run("fb.SInt = -1 fb.USInt = 200 fb.Int = -2 fb.UInt = 65535");
  EXPECT_EQ(fb().GetInt("SInt"), 255);
  EXPECT_EQ(fb().GetInt("USInt"), 200);
  EXPECT_EQ(fb().GetInt("Int"), -2);
  EXPECT_EQ(fb().GetInt("UInt"), -1);
}

TEST_F(BaseFb, GetIntOfABooleanIsOneOrZero) {
  EXPECT_EQ(fb().GetInt("Bool"), 0);
  fb().SetBool("Bool", true);
  EXPECT_EQ(fb().GetInt("Bool"), 1);
}

TEST_F(BaseFb, GetIntReturnsTheLow32BitsOfWiderIntegers) {
  Run("fb.UDInt = 4294967295 fb.LInt = 2^32 + 5 fb.ULInt = 2^63");
  EXPECT_EQ(fb().GetInt("UDInt"), -1);
  EXPECT_EQ(fb().GetInt("LInt"), 5);
  EXPECT_EQ(fb().GetInt("ULInt"), 0);
}

TEST_F(BaseFb, GetIntOfADoubleTruncatesAndSaturates) {
  const auto of = [this](double number) {
    fb().Find("LReal").Value.Double = number;
    return fb().GetInt("LReal");
  };
  EXPECT_EQ(of(-2.9), -2);
  EXPECT_EQ(of(2.9), 2);
  EXPECT_EQ(of(1e20), std::numeric_limits<int>::max());
  EXPECT_EQ(of(-1e20), std::numeric_limits<int>::min());
  EXPECT_EQ(of(-std::numeric_limits<double>::infinity()), std::numeric_limits<int>::min());
  EXPECT_EQ(of(std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST_F(BaseFb, GetIntOfTextIsTheNumberItBeginsWith) {
  const auto of = [this](const std::string& text) {
    fb().SetValue("String", text);
    return fb().GetInt("String");
  };
  EXPECT_EQ(of("  42abc"), 42);
  EXPECT_EQ(of("abc"), 0);
  EXPECT_EQ(of(""), 0);
  EXPECT_EQ(of("-7"), -7);
  EXPECT_EQ(of("99999999999"), std::numeric_limits<int>::max());
  EXPECT_EQ(of("-99999999999"), std::numeric_limits<int>::min());
}

TEST_F(BaseFb, GetIntOfANullStringIsZero) {
  fb().Find("String").Reset(OpcUaType_String);
  EXPECT_EQ(fb().GetInt("String"), 0);
  EXPECT_FALSE(fb().GetBool("String"));
  EXPECT_EQ(fb().GetString("String"), "");
}

TEST_F(BaseFb, GetRealIsTheNumberOfEveryNumericType) {
  Run("fb.SInt = -1 fb.USInt = 200 fb.Int = -2 fb.UInt = 65535 fb.DInt = -2147483648 "
      "fb.UDInt = 4294967295 fb.LInt = -2^40 fb.ULInt = 2^63 fb.Real = 1.5 fb.LReal = 0.1 "
      "fb.Bool = true fb.Time = 1000");
  const std::pair<const char*, double> rows[] = {{"SInt", -1},
                                                 {"USInt", 200},
                                                 {"Int", -2},
                                                 {"UInt", 65535},
                                                 {"DInt", -2147483648.0},
                                                 {"UDInt", 4294967295.0},
                                                 {"LInt", -0x1p40},
                                                 {"ULInt", 0x1p63},
                                                 {"Real", 1.5},
                                                 {"LReal", 0.1},
                                                 {"Bool", 1},
                                                 {"Time", 0},
                                                 {"none", 0}};
  for (const auto& [name, number] : rows) EXPECT_EQ(fb().GetReal(name), number) << name;
}

TEST_F(BaseFb, GetRealOfTextIsTheNumberItBeginsWith) {
  const std::pair<const char*, double> rows[] = {
      {"1.5", 1.5}, {"  +2e3 bar", 2000}, {"-0.25", -0.25}, {"1,5", 1},
      {"", 0},      {"abc", 0},           {" ", 0}};
  for (const auto& [text, number] : rows) {
    fb().SetValue("String", std::string(text));
    EXPECT_EQ(fb().GetReal("String"), number) << text;
  }
}

TEST_F(BaseFb, RealsOfTheBlockReachTheProgramExactly) {
  fb().SetReal("LReal", 0.1);
  EXPECT_EQ(Eval("fb.LReal == 0.1"), "true");
  fb().SetReal("LReal", std::numeric_limits<double>::infinity());
  EXPECT_EQ(Eval("fb.LReal == math.huge"), "true");
  EXPECT_EQ(fb().GetReal("LReal"), std::numeric_limits<double>::infinity());
}

TEST_F(BaseFb, TimesOfTheBlockAreSecondsSince1970ForTheProgram) {
  using namespace std::chrono_literals;
  fb().SetTime("Time", std::chrono::sys_time<std::chrono::milliseconds>(1'000'500ms));
  EXPECT_EQ(Eval("fb.Time"), "1000.5");
  EXPECT_EQ(fb().GetTime("Time"), BlockTime(1'000'500ms));
  Run("fb.Time = 2000.25");
  EXPECT_EQ(fb().GetTime("Time"), BlockTime(2'000'250ms));
  fb().SetTime("Time", std::nullopt);
  EXPECT_EQ(Eval("fb.Time"), "0");
  EXPECT_EQ(fb().GetTime("Time"), std::nullopt);
  EXPECT_EQ(fb().GetTime("DInt"), std::nullopt);
}

TEST_F(BaseFb, SetValueOfAnIntegerMakesTheVariableAnInt32) {
  fb().SetValue("Int", 5);
  EXPECT_EQ(TypeOf("Int"), OpcUaType_Int32);
  EXPECT_EQ(Eval("fb.Int"), "5");
  Run("fb.Int = 100000");  // the current type governs, and it holds more than an INT
  EXPECT_EQ(Eval("fb.Int"), "100000");
}

TEST_F(BaseFb, SetValueOfATextMakesTheVariableAString) {
  fb().SetValue("DInt", std::string("a\0b", 3));
  EXPECT_EQ(TypeOf("DInt"), OpcUaType_String);
  EXPECT_EQ(Eval("#fb.DInt"), "3");
}

TEST_F(BaseFb, SetValueReplacesATextWithANumberAndBack) {
  fb().SetValue("String", 12);
  EXPECT_EQ(fb().GetString("String"), "12");
  fb().SetValue("String", std::string("twelve"));
  EXPECT_EQ(fb().GetString("String"), "twelve");
}

TEST_F(BaseFb, AnUndeclaredVariableGetsTheTypeOfItsFirstValueAndKeepsIt) {
  Run("fb.extra = 'text'");
  EXPECT_EQ(TypeOf("extra"), OpcUaType_String);
  Run("fb.extra = 12");
  EXPECT_EQ(Eval("type(fb.extra)"), "string");
}

TEST_F(BaseFb, ARefusedAssignmentChangesNothingAndNamesTypeAndValue) {
  Run("fb.Int = 12");
  const std::string error = ErrorOf("fb.Int = 40000");
  EXPECT_EQ(error, "test:1: Int: INT cannot hold 40000: out of range");
  EXPECT_EQ(Eval("fb.Int"), "12");
}

TEST_F(BaseFb, InitialValuesAreStoredAsIfAssigned) {
  Run("fb = PROBE.new{DInt = '12', Bool = 1, extra = true}");
  EXPECT_EQ(Eval("fb.DInt"), "12");
  EXPECT_EQ(Eval("fb.Bool"), "true");
  EXPECT_EQ(Eval("fb.extra"), "true");
}

TEST_F(BaseFb, InitialValuesWithOtherKeysAreIgnored) {
  Run("fb = PROBE.new{[true] = 1, [{}] = 2, [print] = 3, DInt = 4}");
  EXPECT_EQ(Eval("fb.DInt"), "4");
}

TEST_F(BaseFb, NumberKeysOfInitialValuesAreStoredUnderTheirTextAndAllArrive) {
  Run("local t = {} for i = 1, 100 do t[i] = i * 2 end t[0.5] = 'half' t.DInt = 3 fb = "
      "PROBE.new(t)");
  for (int i = 1; i <= 100; ++i) {
    EXPECT_EQ(Eval("fb['" + std::to_string(i) + "']"), std::to_string(i * 2));
  }
  EXPECT_EQ(Eval("fb['0.5']"), "half");
  EXPECT_EQ(Eval("fb[7]"), "14");
  EXPECT_EQ(Eval("fb.DInt"), "3");
}

TEST_F(BaseFb, ARefusedInitialValueIsAnErrorAndTheBlockIsCollected) {
  const int before = ProbeFB::alive;
  EXPECT_EQ(ErrorOf("PROBE.new{DInt = 'many'}"),
            "test:1: DInt: DINT cannot hold the text \"many\"");
  Collect();
  EXPECT_EQ(ProbeFB::alive, before);
}

/// Runs the collector at its usual pace, for tests that set it up themselves.
constexpr const char* kUsualPace =
    "collectgarbage('setpause', 200) collectgarbage('setstepmul', 200) ";

TEST_F(BaseFb, AFinalizerMayAssignTheVariableThatIsBeingRead) {
  Run(kUsualPace);
  // Lua may collect while it copies a text; by then the text must not be the variable's own.
  for (const char* length : {"500", "5000"}) {
    Run("live = {} for i = 1, 100000 do live[i] = {} end length = " + std::string(length) + R"(
      fb.String = ('x'):rep(length)
      local meta = {__gc = function() fb.String = ('y'):rep(length) for _ = 1, 3 do local t = {{}} end end}
      for round = 1, 3 do
        collectgarbage('stop')
        for _ = 1, 1000 do setmetatable({}, meta) end
        collectgarbage('restart')
        for _ = 1, 20000 do
          local text = fb.String
          assert(#text == length)
          local garbage = {}
        end
      end)");
  }
}

TEST_F(BaseFb, AFinalizerMayDestroyTheBlockWhoseNumberKeyIsBeingRead) {
  Run(kUsualPace);
  Run(R"(
    local ended = 0
    for i = 1, 40 do
      local fb = PROBE.new{String = ('x'):rep(1000)}
      local gc, done = getmetatable(fb).__gc, false
      setmetatable({}, {__gc = function() if not done then done = true gc(fb) end end})
      pcall(function() for j = 1, 20000 do local v = fb[j + 0.5] if done then break end end end)
      if done then ended = ended + 1 end
    end
    assert(ended > 0))");
}

TEST_F(BaseFb, BlocksInCoroutinesDisappearWithThem) {
  Run(R"(
    threads = {}
    for i = 1, 50 do
      threads[i] = coroutine.create(function()
        local fb = PROBE.new{DInt = i}
        while true do coroutine.yield(fb.DInt) end
      end)
      assert(select(2, coroutine.resume(threads[i])) == i)
    end)");
  EXPECT_EQ(ProbeFB::alive, 51);
  CloseHost();
  EXPECT_EQ(ProbeFB::alive, 0);
}

TEST_F(BaseFb, CollectionDestroysTheBlockOnce) {
  Run("fb = nil");
  Collect();
  EXPECT_EQ(ProbeFB::alive, 0);
}

TEST_F(BaseFb, ClosingTheHostDestroysItsBlocks) {
  CloseHost();
  EXPECT_EQ(ProbeFB::alive, 0);
}

TEST_F(BaseFb, TenThousandBlocksComeAndGo) {
  Run("blocks = {} for i = 1, 10000 do blocks[i] = PROBE.new{DInt = i, String = 'block ' .. i} "
      "end");
  EXPECT_EQ(Eval("blocks[9999].String .. blocks[1].DInt"), "block 99991");
  Run("blocks = nil");
  Collect();
  EXPECT_EQ(ProbeFB::alive, 1);
}

}  // namespace
