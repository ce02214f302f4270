// SPDX-License-Identifier: MIT
// What a runtime reads of a block, and gives to it again in the next run.
#include "block/retained.h"

#include "tests/include/block/fake_job_fb.h"
#include "tests/include/block/probe_fb.h"

/// Strict, with a variable that programs do not see, a secret, and a member of its own.
class MeterFB : public StrictFB<MeterFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override {
    if (GetBool("Add")) SetReal("Hidden", GetReal("Hidden") + 0.5);
    SetReal("Sum", GetReal("Hidden") + base_);
    SetTime("When", std::nullopt);
  }
  void Restored() override { base_ = 1000; }

 private:
  double base_ = 0;
};
DECLARE_FUNCTION_BLOCK(MeterFB)
DEFINE_FUNCTION_BLOCK(MeterFB, "METER")

const FBMetaEntry* MeterFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry _entries[] = {{"Add", "BOOL", kInput, "adds 0.5"},
                                         {"Hidden", "LREAL", kRetained, "the sum itself"},
                                         {"Key", "STRING", kInput, "opens the meter", true},
                                         {"Sum", "LREAL", kOutput, "the sum"},
                                         {"Count", "INT", kInput, "a small number"},
                                         {"When", "DATE_AND_TIME", kOutput, "nothing"},
                                         {nullptr, nullptr}};
  return _entries;
}

namespace {

class Retained : public test_support::LuaHost {
 protected:
  Retained() {
    luaopen_MeterFB(L());
    lua_settop(L(), 0);
    Run(R"(
      local metatable = debug.getregistry().METER
      retained, restore = metatable.__retained, metatable.__restore
      meter = METER.new{ Add = true, Key = "1234", Count = 7 }
      meter() meter() meter()
      function kept(block)
        local names = {}
        for name, value in pairs(retained(block)) do table.insert(names, name .. "=" .. tostring(value)) end
        table.sort(names)
        return table.concat(names, " ")
      end)");
  }
};

TEST_F(Retained, EveryVariableIsKeptAlsoAHiddenOneButNoSecret) {
  EXPECT_EQ(Eval("kept(meter)"), "Add=true Count=7 Hidden=1.5 Sum=1.5 When=0");
}

TEST_F(Retained, ANewBlockGoesOnWithWhatWasKept) {
  Run("other = METER.new() refused = restore(other, retained(meter))");
  EXPECT_EQ(Eval("#refused"), "0");
  EXPECT_EQ(Eval("kept(other)"), Eval("kept(meter)"));
  EXPECT_EQ(Eval("other.Key"), "");
  Run("other()");
  EXPECT_EQ(Eval("other.Sum"), "1002") << "Restored() was called, and the hidden sum went on";
}

TEST_F(Retained, AValueOfAnotherTypeOrOutOfRangeIsRefusedByNameAndTheOthersAreTaken) {
  Run(R"(refused = restore(meter, { Add = "true", Hidden = 9, Count = 40000, Sum = false, Key = "x", Gone = 1 })
         table.sort(refused))");
  EXPECT_EQ(Eval("table.concat(refused, ' ')"), "Add Count Sum");
  EXPECT_EQ(Eval("kept(meter)"), "Add=true Count=7 Hidden=9 Sum=1.5 When=0");
  EXPECT_EQ(Eval("meter.Key"), "1234");
}

TEST_F(Retained, AVariableThatWasNotKeptHasItsOwnValue) {
  Run("restore(meter, {})");
  EXPECT_EQ(Eval("kept(meter)"), "Add=true Count=7 Hidden=1.5 Sum=1.5 When=0");
}

TEST_F(Retained, AHiddenVariableIsUnknownToProgramsAndToHosts) {
  const std::string error = "test:1: METER has no variable 'Hidden'; did you mean '";
  for (const char* chunk : {"local x = meter.Hidden", "meter.Hidden = 1", "METER.new{Hidden = 1}",
                            "METER.get(meter, 'Hidden')", "METER.set(meter, 'Hidden', 1)"}) {
    EXPECT_THAT(ErrorOf(chunk), testing::StartsWith(error)) << chunk;
    EXPECT_THAT(ErrorOf(chunk), testing::Not(testing::HasSubstr("mean 'Hidden'"))) << chunk;
  }
  EXPECT_EQ(Eval("TYPES.StandardFB.METER.Vars.Hidden"), "nil");
  EXPECT_EQ(Eval("TYPES.StandardFB.METER.Vars.Sum.Type.Name"), "LREAL");
  EXPECT_FALSE(Declares(MeterFB::GetMetaTable(), "Hidden"));
}

TEST_F(Retained, OtherObjectsAndMissingTablesAreArgumentErrors) {
  for (const char* chunk : {"retained()", "retained(io.stdout)", "retained({})",
                            "restore(io.stdout, {})", "restore(meter)", "restore(meter, 1)"}) {
    EXPECT_THAT(ErrorOf(chunk), testing::HasSubstr("bad argument #")) << chunk;
  }
  Run("debug.getregistry().METER.__gc(meter)");
  EXPECT_THAT(ErrorOf("retained(meter)"), testing::HasSubstr("bad argument #1"));
}

class RetainedProbe : public ProbeTest {};

TEST_F(RetainedProbe, ABlockThatIsNotStrictKeepsItsDeclaredVariables) {
  Run(R"(
    local metatable = debug.getregistry().PROBE
    fb.Bool, fb.LReal, fb.String, fb.Time, fb.Extra = true, -1/0, "a\0b\255", 1700000000.25, "x"
    kept = metatable.__retained(fb)
    other = PROBE.new()
    refused = metatable.__restore(other, kept))");
  EXPECT_EQ(Eval("#refused"), "0");
  EXPECT_EQ(Eval("kept.Extra"), "nil");
  EXPECT_EQ(Eval("other.Bool and other.LReal == -1/0 and other.String == 'a\\0b\\255'"), "true");
  EXPECT_EQ(Eval("other.Time"), "1700000000.25");
  EXPECT_FALSE(ProbeFB::last->GetTime("Missing").has_value());
}

TEST_F(RetainedProbe, NoTimeStaysNoTime) {
  Run("local metatable = debug.getregistry().PROBE other = PROBE.new{Time = 5} "
      "metatable.__restore(other, metatable.__retained(fb))");
  EXPECT_FALSE(ProbeFB::last->GetTime("Time").has_value());
}

class RetainedJob : public JobTest {
 protected:
  /// A new block `next` with what was kept of `fb`.
  void Restart() {
    Run("local metatable = debug.getregistry().FAKE_OUTBOX next = FAKE_OUTBOX.new() "
        "assert(#metatable.__restore(next, metatable.__retained(fb)) == 0)");
  }
};

TEST_F(RetainedJob, AJobThatWasUnderWayEndsAndExecuteMustRiseAgain) {
  Run("fb.Port = 3 fb.Execute = true fb()");
  EXPECT_EQ(Eval("fb.Busy"), "true");
  Restart();
  EXPECT_EQ(Eval("next.Busy"), "false");
  const int starts = QueueingJobFB::script.starts;
  Run("next() next()");
  EXPECT_EQ(Eval("tostring(next.Busy) .. tostring(next.Done) .. tostring(next.Error)"),
            "falsefalsefalse");
  EXPECT_EQ(QueueingJobFB::script.starts, starts);
  Run("next.Execute = false next() next.Execute = true next()");
  EXPECT_EQ(QueueingJobFB::script.starts, starts + 1);
  EXPECT_EQ(Eval("next.Busy"), "true");
}

TEST_F(RetainedJob, TheEndOfAJobHoldsWhileExecuteIsTrue) {
  QueueingJobFB::script.progress = {JobProgress::Failed({ErrorId::kExpired, "too late"})};
  Run("fb.Execute = true fb() fb()");
  Restart();
  Run("next()");
  EXPECT_EQ(Eval("tostring(next.Error) .. next.ErrorId .. next.ErrorText"), "true20too late");
  Run("next.Execute = false next()");
  EXPECT_EQ(Eval("tostring(next.Error) .. next.ErrorId .. next.ErrorText"), "false0");
}

}  // namespace
