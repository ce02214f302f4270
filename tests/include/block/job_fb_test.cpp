// SPDX-License-Identifier: MIT
// The outputs of a job block, call by call.
#include "block/job_fb.h"

#include "tests/include/block/fake_job_fb.h"

namespace {

using Progress = JobProgress;

/// The outputs of `block` in short: B, D, E for the one that is TRUE, then ErrorId and ErrorText.
constexpr const char* kOutputs = R"(
  function outputs(block)
    local text = (block.Busy and 'B' or '') .. (block.Done and 'D' or '') .. (block.Error and 'E' or '')
    if block.ErrorId ~= 0 or block.ErrorText ~= '' then text = text .. block.ErrorId .. block.ErrorText end
    return text
  end
  function call(block, execute)
    block.Execute = execute
    block()
    return outputs(block)
  end)";

class JobFb : public JobTest {
 protected:
  JobFb() { Run(kOutputs); }
  /// Calls `block` with this `Execute`. @return its outputs
  std::string Call(bool execute, const char* block = "fb") {
    return Eval(std::string("call(") + block + (execute ? ", true)" : ", false)"));
  }
  JobScript& script() { return QueueingJobFB::script; }
  JobScript& single() { return SingleJobFB::script; }
};

TEST_F(JobFb, NothingHappensWithoutAnEdge) {
  EXPECT_EQ(Call(false), "");
  EXPECT_EQ(Call(false), "");
  EXPECT_EQ(script().starts, 0);
  EXPECT_EQ(script().polls, 0);
  EXPECT_EQ(script().after_end, 2);
}

TEST_F(JobFb, AnEdgeStartsTheJobInTheSameCallWithTheInputsOfThatCall) {
  Call(false);
  Run("fb.Port = 4 fb.Receiver = '+49'");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(script().starts, 1);
  EXPECT_EQ(script().polls, 0);
  EXPECT_EQ(Eval("fb.Sent .. fb.Told"), "4+49");
}

TEST_F(JobFb, ExecuteThatIsTrueInTheFirstCallIsAnEdge) {
  EXPECT_EQ(Call(true), "B");
  Run("second = FAKE_OUTBOX.new{Execute = true} second()");
  EXPECT_EQ(Eval("outputs(second)"), "B");
}

TEST_F(JobFb, ExecuteThatStaysTrueStartsNothingMore) {
  script().progress = {Progress::Done()};
  Call(true);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Call(true), "D");
  EXPECT_EQ(script().starts, 1);
  EXPECT_EQ(script().polls, 1);
  EXPECT_EQ(script().after_end, 4);
}

TEST_F(JobFb, ExecuteMayFallWhileTheJobIsUnderWay) {
  Call(true);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Call(false), "B");
}

TEST_F(JobFb, DoneBeginsInTheCallInWhichBusyEndsAndHoldsWhileExecuteIsTrue) {
  script().progress = {Progress::Busy(), Progress::Done()};
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(Call(true), "D");
  EXPECT_EQ(Call(true), "D");
  EXPECT_EQ(Call(false), "");
  EXPECT_EQ(Call(false), "");
}

TEST_F(JobFb, DoneHoldsForExactlyOneCallIfExecuteIsFalseAlready) {
  script().progress = {Progress::Done()};
  Call(true);
  EXPECT_EQ(Call(false), "D");
  EXPECT_EQ(Call(false), "");
  EXPECT_EQ(Call(false), "");
}

TEST_F(JobFb, ErrorHoldsLikeDone) {
  script().progress = {Progress::Failed({ErrorId::kExpired, "too late"})};
  Call(true);
  EXPECT_EQ(Call(true), "E20too late");
  EXPECT_EQ(Call(true), "E20too late");
  EXPECT_EQ(Call(false), "");
  script().progress = {Progress::Failed({ErrorId::kRefused, "no"})};
  Call(true);
  EXPECT_EQ(Call(false), "E21no");
  EXPECT_EQ(Call(false), "");
}

TEST_F(JobFb, InputsThatCannotWorkAreAnErrorInTheCallOfTheEdge) {
  script().refusal = {ErrorId::kReceiver, "\"x\" is not a number"};
  EXPECT_EQ(Call(true), "E11\"x\" is not a number");
  EXPECT_EQ(Call(true), "E11\"x\" is not a number");
  EXPECT_EQ(script().polls, 0);
  EXPECT_EQ(Call(false), "");
  script().refusal.reset();
  EXPECT_EQ(Call(true), "B");
}

TEST_F(JobFb, AnEdgeInTheCallAfterTheEndStartsTheNextJob) {
  script().progress = {Progress::Done()};
  Call(true);
  EXPECT_EQ(Call(false), "D");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(script().starts, 2);
}

TEST_F(JobFb, AnEdgeClearsAllOutputsOfTheJobBefore) {
  script().progress = {Progress::Failed({ErrorId::kRefused, "no"})};
  Call(true);
  Call(false);
  script().refusal = {ErrorId::kBadValue, "bad"};
  Run("fb.Port = 9");
  EXPECT_EQ(Eval("fb.Sent"), "0");
  EXPECT_EQ(Call(true), "E10bad");
  EXPECT_EQ(Eval("fb.Sent .. fb.Told .. tostring(fb.Stored) .. fb.Took .. fb.Time"), "0false00");
  EXPECT_EQ(Eval("fb.Port"), "9") << "inputs stay";
}

TEST_F(JobFb, TheJobsOtherOutputsStayAfterDoneHasFallen) {
  Run("fb.Port = 4");
  script().progress = {Progress::Done()};
  Call(true);
  Call(false);
  Call(false);
  EXPECT_EQ(Eval("fb.Sent"), "4");
}

TEST_F(JobFb, TroubleIsShownWhileBusyAndEndsWithIt) {
  script().progress = {Progress::Busy({ErrorId::kStore, "disk full"}),
                       Progress::Busy({ErrorId::kStore, "disk full"}), Progress::Busy(),
                       Progress::Busy({ErrorId::kStore, "again"}), Progress::Done()};
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(Call(true), "B22disk full");
  EXPECT_EQ(Call(true), "B22disk full");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(Call(true), "B22again");
  EXPECT_EQ(Call(true), "D");
}

TEST_F(JobFb, DoneMayHaveATextWhichFallsWithIt) {
  script().progress = {Progress::Done("sent twice")};
  Call(true);
  EXPECT_EQ(Call(true), "D0sent twice");
  EXPECT_EQ(Call(false), "");
}

TEST_F(JobFb, AnEdgeWhileBusyStartsANewJobIfTheClassWantsThat) {
  Run("fb.Port = 1");
  Call(true);
  Call(false);
  Run("fb.Port = 2");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(script().starts, 2);
  EXPECT_EQ(Eval("fb.Sent"), "2");
}

TEST_F(JobFb, AnEdgeInTheCallInWhichTheJobWouldEndFollowsTheNewJob) {
  Call(true);
  Call(false);
  script().progress = {Progress::Done("old")};
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(script().starts, 2);
  EXPECT_EQ(script().polls, 1) << "the old job is not asked any more";
}

TEST_F(JobFb, ANewJobThatCannotStartEndsBusy) {
  Call(true);
  Call(false);
  script().refusal = {ErrorId::kText, "empty"};
  EXPECT_EQ(Call(true), "E12empty");
  EXPECT_EQ(Call(true), "E12empty");
}

TEST_F(JobFb, AnEdgeWhileBusyIsIgnoredIfTheClassWantsThat) {
  Call(true, "single");
  Call(false, "single");
  Run("single.Port = 2");
  EXPECT_EQ(Call(true, "single"), "B");
  EXPECT_EQ(single().starts, 1);
  EXPECT_EQ(Eval("single.Sent"), "0");
}

TEST_F(JobFb, AnIgnoredEdgeInTheCallInWhichTheJobEndsShowsTheEndWhileExecuteIsTrue) {
  Call(true, "single");
  Call(false, "single");
  single().progress = {Progress::Done()};
  EXPECT_EQ(Call(true, "single"), "D");
  EXPECT_EQ(Call(true, "single"), "D");
  EXPECT_EQ(single().starts, 1);
  EXPECT_EQ(Call(false, "single"), "");
  EXPECT_EQ(Call(true, "single"), "B");
}

TEST_F(JobFb, AStartThatThrowsIsALuaErrorAndLeavesNoJob) {
  script().thrown = "no memory";
  EXPECT_THAT(ErrorOf("call(fb, true)"), testing::EndsWith("no memory"));
  script().thrown.clear();
  EXPECT_EQ(Call(true), "");
  EXPECT_EQ(script().polls, 0);
  Call(false);
  EXPECT_EQ(Call(true), "B");
}

TEST_F(JobFb, APollThatThrowsIsALuaErrorAndTheJobGoesOn) {
  Call(true);
  script().thrown = "no memory";
  EXPECT_THAT(ErrorOf("call(fb, true)"), testing::EndsWith("no memory"));
  EXPECT_EQ(Eval("outputs(fb)"), "B");
  script().thrown.clear();
  script().progress = {Progress::Done()};
  EXPECT_EQ(Call(true), "D");
}

TEST_F(JobFb, AtMostOneOfBusyDoneAndErrorIsTrueWhateverHappens) {
  // Every sequence of eight calls, with a job that ends in the second poll.
  for (int sequence = 0; sequence < 256; ++sequence) {
    Run("fb = FAKE_OUTBOX.new()");
    for (int call = 0; call < 8; ++call) {
      script().progress = {call % 2 == 0   ? Progress::Busy()
                           : call % 3 == 0 ? Progress::Done()
                                           : Progress::Failed({ErrorId::kRefused, "no"})};
      const std::string outputs = Call((sequence >> call & 1) != 0);
      const auto count = std::count_if(outputs.begin(), outputs.end(),
                                       [](char c) { return c == 'B' || c == 'D' || c == 'E'; });
      EXPECT_LE(count, 1) << sequence << " " << call << " " << outputs;
    }
  }
}

TEST_F(JobFb, TheModulesCallFunctionIsACallOfTheBlock) {
  Run("FAKE_OUTBOX.set(fb, 'Execute', true) FAKE_OUTBOX.call(fb)");
  EXPECT_EQ(Eval("FAKE_OUTBOX.get(fb, 'Busy')"), "true");
}

TEST_F(JobFb, ABlockWithAJobUnderWayIsCollected) {
  Call(true);
  const int before = QueueingJobFB::alive;
  Run("fb = nil");
  Collect();
  EXPECT_EQ(QueueingJobFB::alive, before - 1);
}

TEST_F(JobFb, AStandingErrorShowsWhileThereIsNoJob) {
  EXPECT_EQ(Call(false), "");
  script().standing = JobFailure{ErrorId::kModem, "gone"};
  EXPECT_EQ(Call(false), "E24gone");
  EXPECT_EQ(Call(false), "E24gone");
  script().standing = JobFailure{ErrorId::kSim, "locked"};
  EXPECT_EQ(Call(false), "E25locked");
  script().standing.reset();
  EXPECT_EQ(Call(false), "");
}

TEST_F(JobFb, AJobHidesAStandingErrorUntilItsEndHasBeenShown) {
  script().standing = JobFailure{ErrorId::kModem, "gone"};
  script().progress = {Progress::Busy(), Progress::Done("well")};
  EXPECT_EQ(Call(false), "E24gone");
  EXPECT_EQ(Call(true), "B");
  EXPECT_EQ(Call(false), "B");
  EXPECT_EQ(Call(false), "D0well");
  EXPECT_EQ(Call(false), "E24gone");
}

TEST_F(JobFb, AStandingErrorEndsADoneThatExecuteHolds) {
  script().progress = {Progress::Done()};
  Call(true);
  EXPECT_EQ(Call(true), "D");
  EXPECT_EQ(Call(true), "D");
  script().standing = JobFailure{ErrorId::kModem, "gone"};
  EXPECT_EQ(Call(true), "E24gone");
  script().standing.reset();
  EXPECT_EQ(Call(true), "");
}

}  // namespace
