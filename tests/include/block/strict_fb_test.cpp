// SPDX-License-Identifier: MIT
// Declared names only, and outputs that only the block sets.
#include "block/strict_fb.h"

#include "tests/include/block/fake_job_fb.h"

namespace {

constexpr const char* kUnknown = "FAKE_OUTBOX has no variable 'Reciever'; did you mean 'Receiver'?";
constexpr const char* kOutput = "FAKE_OUTBOX: 'Done' is an output; only the block sets it";

class StrictFb : public JobTest {};

TEST_F(StrictFb, AnUnknownNameIsAnErrorThatNamesTheNearestOneInEveryWayToUseIt) {
  for (const char* chunk :
       {"fb.Reciever = 'x'", "local x = fb.Reciever", "FAKE_OUTBOX.get(fb, 'Reciever')",
        "FAKE_OUTBOX.set(fb, 'Reciever', 1)", "FAKE_OUTBOX.new{Port = 1, Reciever = 'x'}",
        "fb.Reciever = nil", "fb['Reciever'] = {}"}) {
    EXPECT_EQ(ErrorOf(chunk), std::string("test:1: ") + kUnknown) << chunk;
  }
}

TEST_F(StrictFb, AssigningAnOutputIsAnErrorInEveryWayToDoIt) {
  for (const char* chunk : {"fb.Done = true", "FAKE_OUTBOX.set(fb, 'Done', true)",
                            "FAKE_OUTBOX.new{Port = 1, Done = false}", "fb.Done = nil"}) {
    EXPECT_EQ(ErrorOf(chunk), std::string("test:1: ") + kOutput) << chunk;
  }
  EXPECT_EQ(Eval("fb.Done"), "false");
}

TEST_F(StrictFb, TheErrorNamesTheProgramsLineEvenThroughPcall) {
  EXPECT_EQ(Eval("\nselect(2, pcall(FAKE_OUTBOX.get, fb, 'Reciever'))"),
            std::string("test:2: ") + kUnknown);
  EXPECT_EQ(Eval("select(2, pcall(FAKE_OUTBOX.set, fb, 'Done', true))"),
            std::string("test:1: ") + kOutput);
  EXPECT_EQ(Eval("select(2, pcall(FAKE_OUTBOX.new, {Reciever = 1}))"),
            std::string("test:1: ") + kUnknown);
  EXPECT_EQ(
      Eval("select(2, coroutine.resume(coroutine.create(function() return fb.Reciever end)))"),
      std::string("test:1: ") + kUnknown);
}

TEST_F(StrictFb, NothingChangesAndNothingIsLoggedByARefusal) {
  Run("pcall(function() fb.Reciever = 1 end) pcall(function() fb.Sent = 1 end)");
  EXPECT_THAT(test_support::TakeLog(), testing::IsEmpty());
  EXPECT_EQ(ErrorOf("local x = fb.Reciever"), std::string("test:1: ") + kUnknown);
  EXPECT_EQ(Eval("fb.Sent"), "0");
}

TEST_F(StrictFb, AForgottenCallIsReportedOnceForEachBlock) {
  Run("for i = 1, 99 do fb.Receiver = 'x' end fb() for i = 1, 99 do fb.Receiver = 'x' end");
  EXPECT_THAT(test_support::TakeLog(), testing::IsEmpty());
  Run("\nfor i = 1, 300 do fb.Receiver = 'x' end fb() for i = 1, 300 do fb.Receiver = 'x' end");
  EXPECT_THAT(
      test_support::TakeLog(),
      testing::ElementsAre(testing::HasSubstr(
          "test:2: the inputs of this FAKE_OUTBOX have been set 100 times without a call")));
}

TEST_F(StrictFb, NamesAreCaseSensitiveAndTheNearestOneIsSuggested) {
  EXPECT_THAT(ErrorOf("fb.receiver = 'x'"), testing::EndsWith("did you mean 'Receiver'?"));
  EXPECT_THAT(ErrorOf("fb.Errortext = 'x'"), testing::EndsWith("did you mean 'ErrorText'?"));
  EXPECT_THAT(ErrorOf("fb.execute = true"), testing::EndsWith("did you mean 'Execute'?"));
}

TEST_F(StrictFb, EnOAndTheInternalMarkAreTheHosts) {
  Run("fb.EnO = false fb.EnO = {} other = FAKE_OUTBOX.new{EnO = false}");
  EXPECT_EQ(Eval("fb.EnO"), "true");
  EXPECT_EQ(Eval("other.EnO"), "true");
  EXPECT_EQ(Eval("fb.__Internal"), "true");
  EXPECT_THAT(ErrorOf("fb.__Internal = 1"), testing::HasSubstr("has no variable '__Internal'"));
}

TEST_F(StrictFb, InitialValuesNeedNamesThatAreStrings) {
  EXPECT_EQ(ErrorOf("FAKE_OUTBOX.new{'+49151'}"),
            "test:1: FAKE_OUTBOX has no variable '1'; each initial value needs a name");
  EXPECT_EQ(ErrorOf("FAKE_OUTBOX.new{[0.5] = 1}"),
            "test:1: FAKE_OUTBOX has no variable '0.5'; each initial value needs a name");
  EXPECT_EQ(ErrorOf("FAKE_OUTBOX.new{[true] = 1}"),
            "test:1: FAKE_OUTBOX: the name of an initial value must be a string, not a boolean");
  EXPECT_EQ(ErrorOf("FAKE_OUTBOX.new{[{}] = 1}"),
            "test:1: FAKE_OUTBOX: the name of an initial value must be a string, not a table");
  EXPECT_THAT(ErrorOf("FAKE_OUTBOX.new(7)"), testing::HasSubstr("bad argument #1 to 'new'"));
}

TEST_F(StrictFb, InitialValuesAreStoredAndNoneAreNeeded) {
  Run("fb = FAKE_OUTBOX.new{Port = '3', Receiver = 49, ValidFor = 0.5, From = 1000, Urgent = 1}");
  EXPECT_EQ(Eval("fb.Port .. fb.Receiver .. fb.ValidFor .. fb.From .. tostring(fb.Urgent)"),
            "3490.51000true");
  EXPECT_EQ(Eval("FAKE_OUTBOX.new().Port + FAKE_OUTBOX.new(nil).Port + FAKE_OUTBOX.new({}).Port"),
            "0");
}

TEST_F(StrictFb, ANumberAsANameIsUnknown) {
  EXPECT_THAT(ErrorOf("local x = fb[1]"), testing::HasSubstr("FAKE_OUTBOX has no variable '1'"));
  EXPECT_THAT(ErrorOf("fb[1] = 2"), testing::HasSubstr("FAKE_OUTBOX has no variable '1'"));
  EXPECT_THAT(ErrorOf("fb[true] = 2"), testing::HasSubstr("variable name expected, got boolean"));
}

TEST_F(StrictFb, LongAndBinaryNamesAreShownInPart) {
  EXPECT_LT(ErrorOf("fb[('x'):rep(1000000)] = 1").size(), 200U);
  EXPECT_THAT(ErrorOf("fb['Port\\0'] = 1"), testing::HasSubstr("has no variable 'Port'"));
  EXPECT_THAT(ErrorOf("fb[''] = 1"), testing::HasSubstr("has no variable ''"));
}

TEST_F(StrictFb, ARefusedValueNamesTheVariableAndChangesNothing) {
  Run("fb.Port = 5");
  EXPECT_EQ(ErrorOf("fb.Port = 'five'"), "test:1: Port: DINT cannot hold the text \"five\"");
  EXPECT_EQ(ErrorOf("FAKE_OUTBOX.new{Port = {}}"), "test:1: Port: DINT cannot hold a table");
  EXPECT_EQ(Eval("fb.Port"), "5");
}

TEST_F(StrictFb, BlocksWhoseCreationFailsAreCollected) {
  Collect();
  const int before = QueueingJobFB::alive;
  Run("for i = 1, 100 do assert(not pcall(FAKE_OUTBOX.new, {Reciever = i, Port = i})) end");
  Run("for i = 1, 100 do assert(not pcall(FAKE_OUTBOX.new, {i})) end");
  Collect();
  EXPECT_EQ(QueueingJobFB::alive, before);
}

TEST_F(StrictFb, GcByHandLeavesNoBlockToUse) {
  const int before = QueueingJobFB::alive;
  Run("gc = getmetatable(fb).__gc gc(fb)");
  EXPECT_EQ(QueueingJobFB::alive, before - 1);
  EXPECT_THAT(ErrorOf("fb.Port = 1"), testing::HasSubstr("attempt to index"));
  EXPECT_THAT(ErrorOf("FAKE_OUTBOX.get(fb, 'Reciever')"), testing::HasSubstr("bad argument #1"));
}

TEST_F(StrictFb, AFinalizerMayDestroyTheBlockWhoseErrorIsBeingRaised) {
  Run(R"(
    collectgarbage('setpause', 100) collectgarbage('setstepmul', 1000)
    local ended = 0
    for i = 1, 300 do
      local fb = FAKE_OUTBOX.new{Receiver = ('x'):rep(1000)}
      local gc, done = getmetatable(fb).__gc, false
      setmetatable({}, {__gc = function() if not done then done = true gc(fb) end end})
      for j = 1, 100 do
        if done then break end
        assert(not pcall(FAKE_OUTBOX.set, fb, 'n' .. j, j))
        assert(not pcall(FAKE_OUTBOX.get, fb, j))
      end
      if done then ended = ended + 1 end
    end
    assert(ended > 0))");
}

TEST_F(StrictFb, ClosingTheHostDestroysItsBlocks) {
  Run("blocks = {} for i = 1, 100 do blocks[i] = FAKE_OUTBOX.new{Port = i} end");
  CloseHost();
  EXPECT_EQ(QueueingJobFB::alive, 0);
}

TEST_F(StrictFb, ABlockOfAnotherTypeIsAnArgumentError) {
  EXPECT_THAT(ErrorOf("FAKE_OUTBOX.get(single, 'Port')"), testing::HasSubstr("bad argument #1"));
}

}  // namespace
