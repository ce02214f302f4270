// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/schedule_fb.h"

#include "tests/addins/corvane_standard/standard_block_test.h"
#include "tests/addins/corvane_standard/time_zone.h"
#include "tests/addins/corvane_standard/timing_diagram.h"

namespace {

class ScheduleBlock : public StandardBlockTest {
 protected:
  /// A block that is called first at this time.
  void Begin(const std::string& at, const std::string& utc) {
    SetNow(static_cast<double>(Utc(utc)));
    Run("fb = SCHEDULE.new{Enable = true, At = '" + at + "'} fb()");
  }
  /// A call at this time. @return Q
  bool At(const std::string& utc) { return AtPoint(static_cast<double>(Utc(utc))); }
  bool AtPoint(double now) {
    SetNow(now);
    Run("fb()");
    return Eval("fb.Q") == "true";
  }
  /// Calls the block every minute. @return at which times Q was TRUE, by local clocks
  std::string DueBetween(const std::string& from, const std::string& to) {
    std::string dues;
    for (std::int64_t point = Utc(from); point <= Utc(to); point += 60) {
      if (AtPoint(static_cast<double>(point))) dues += (dues.empty() ? "" : "; ") + Local(point);
    }
    return dues;
  }
  std::string Next() { return Local(std::stoll(Eval("string.format('%.0f', fb.Next)"))); }
  /// Another block gets what `fb` had, as at the start of the program.
  void Restart() {
    Run("local kept = debug.getmetatable(fb).__retained(fb) "
        "fb = SCHEDULE.new() debug.getmetatable(fb).__restore(fb, kept)");
  }

  TimeZone zone_{"UTC"};
};

TEST_F(ScheduleBlock, IsTrueForOneCallAtEachTime) {
  Begin("06:30; 18:00", "2026-11-22 06:00");
  EXPECT_EQ(Next(), "2026-11-22 06:30 UTC");
  EXPECT_EQ(DueBetween("2026-11-22 06:01", "2026-11-23 12:00"),
            "2026-11-22 06:30 UTC; 2026-11-22 18:00 UTC; 2026-11-23 06:30 UTC");
  EXPECT_EQ(Next(), "2026-11-23 18:00 UTC");
}

TEST_F(ScheduleBlock, IsNotTrueTwiceWithinTheSecond) {
  Begin("06:30", "2026-11-22 06:00");
  const auto due = static_cast<double>(Utc("2026-11-22 06:30"));
  EXPECT_FALSE(AtPoint(due - 0.01));
  EXPECT_TRUE(AtPoint(due));
  EXPECT_FALSE(AtPoint(due));
  EXPECT_FALSE(AtPoint(due + 0.01));
}

TEST_F(ScheduleBlock, BeginsWithItsFirstCall) {
  Begin("06:30", "2026-11-22 06:31");
  EXPECT_EQ(Eval("fb.Q"), "false");
  EXPECT_FALSE(At("2026-11-22 06:32"));
}

TEST_F(ScheduleBlock, FollowsLocalTime) {
  TimeZone::Use("Asia/Kolkata");
  Begin("06:30", "2026-11-22 00:00");
  EXPECT_EQ(DueBetween("2026-11-22 00:01", "2026-11-23 00:00"), "2026-11-22 06:30 IST");
  TimeZone::Use("America/New_York");
  Begin("Sun 23:30", "2026-11-22 12:00");
  EXPECT_EQ(DueBetween("2026-11-22 12:01", "2026-11-24 12:00"), "2026-11-22 23:30 EST");
}

TEST_F(ScheduleBlock, OnTheDayOnWhichClocksAreSetForwardAMissingTimeComesWithTheChange) {
  TimeZone::Use("Europe/Berlin");
  Begin("01:30; 02:00; 02:30; 03:30", "2026-03-28 22:00");
  EXPECT_EQ(DueBetween("2026-03-28 22:01", "2026-03-29 12:00"),
            "2026-03-29 01:30 CET; 2026-03-29 03:00 CEST; 2026-03-29 03:30 CEST");
}

TEST_F(ScheduleBlock, OnTheDayOnWhichClocksAreSetBackATimeComesOnce) {
  TimeZone::Use("Europe/Berlin");
  Begin("01:30; 02:00; 02:30; 03:30", "2026-10-24 22:00");
  EXPECT_EQ(DueBetween("2026-10-24 22:01", "2026-10-25 12:00"),
            "2026-10-25 01:30 CEST; 2026-10-25 02:00 CEST; 2026-10-25 02:30 CEST; "
            "2026-10-25 03:30 CET");
  TimeZone::Use("America/New_York");
  Begin("01:30", "2026-11-01 02:00");
  EXPECT_EQ(DueBetween("2026-11-01 02:01", "2026-11-01 12:00"), "2026-11-01 01:30 EDT");
}

TEST_F(ScheduleBlock, AMidnightThatDoesNotExistComesWithTheChange) {
  TimeZone::Use("America/Sao_Paulo");
  Begin("00:00", "2018-11-03 12:00");
  EXPECT_EQ(DueBetween("2018-11-03 12:01", "2018-11-05 01:00"), "2018-11-04 01:00 -02");
}

TEST_F(ScheduleBlock, ATimeThatTheClockJumpedOverCountsOnceIfItIsLessThanAnHourAgo) {
  Begin("06:10; 06:30", "2026-11-22 06:00");
  EXPECT_TRUE(At("2026-11-22 06:50"));  // both, once
  EXPECT_FALSE(At("2026-11-22 06:51"));
  Begin("06:30", "2026-11-22 06:00");
  EXPECT_TRUE(At("2026-11-22 07:29:59"));
  Begin("06:30", "2026-11-22 06:00");
  EXPECT_FALSE(At("2026-11-22 07:30"));
  EXPECT_EQ(Next(), "2026-11-23 06:30 UTC");
  EXPECT_TRUE(At("2026-12-22 06:30"));
}

TEST_F(ScheduleBlock, AClockThatGoesBackRepeatsNothing) {
  Begin("06:30", "2026-11-22 06:00");
  EXPECT_TRUE(At("2026-11-22 06:31"));
  EXPECT_FALSE(At("2026-11-22 06:29:59"));
  EXPECT_FALSE(At("2026-11-22 06:30"));
  EXPECT_FALSE(At("2026-11-22 05:31"));  // by an hour, as somebody may do in autumn
  EXPECT_FALSE(At("2026-11-22 06:30"));
  EXPECT_TRUE(At("2026-11-23 06:30"));
}

TEST_F(ScheduleBlock, AClockThatWasFarAheadAndIsSetRightDoesNotStopIt) {
  Begin("06:30", "2036-11-22 06:00");
  EXPECT_TRUE(At("2036-11-22 06:30"));
  EXPECT_FALSE(At("2026-11-22 06:00"));
  EXPECT_EQ(Next(), "2026-11-22 06:30 UTC");
  EXPECT_TRUE(At("2026-11-22 06:30"));
  EXPECT_FALSE(At("2026-11-22 06:31"));
  EXPECT_TRUE(At("2026-11-23 06:30"));
}

TEST_F(ScheduleBlock, AClockThatBeginsIn1970AndIsSetRight) {
  Begin("06:30", "1970-01-01 00:00");
  EXPECT_FALSE(At("2026-11-22 06:00"));
  EXPECT_TRUE(At("2026-11-22 06:30"));
  Begin("06:30", "1970-01-01 00:00");
  EXPECT_TRUE(At("2026-11-22 06:50"));  // the clock jumped over it
  EXPECT_FALSE(At("2026-11-22 06:51"));
}

TEST_F(ScheduleBlock, RetainedATimeThatPassedWhileTheProgramWasNotRunningCountsOnce) {
  Begin("06:30", "2026-11-22 06:00");
  Restart();
  EXPECT_TRUE(At("2026-11-22 06:50"));
  Restart();
  EXPECT_FALSE(At("2026-11-22 06:51"));
  Restart();
  EXPECT_FALSE(At("2026-11-23 07:30"));  // an hour ago
  EXPECT_TRUE(At("2026-11-24 06:30"));
}

TEST_F(ScheduleBlock, RetainedItRemembersWhatItFiredAlthoughTheClockBeginsIn1970) {
  Begin("06:30", "2026-11-22 06:00");
  EXPECT_TRUE(At("2026-11-22 06:30"));
  Restart();
  EXPECT_FALSE(At("1970-01-01 00:01"));
  EXPECT_FALSE(At("2026-11-22 06:50"));
  EXPECT_TRUE(At("2026-11-23 06:30"));
}

TEST_F(ScheduleBlock, RetainedAnotherAtBeginsWithTheFirstCall) {
  Begin("18:00", "2026-11-22 06:00");
  Restart();
  Run("fb.At = '06:30'");
  EXPECT_FALSE(At("2026-11-22 06:50"));
  EXPECT_TRUE(At("2026-11-23 06:30"));
}

TEST_F(ScheduleBlock, ItKeepsTheSameUntilSomethingIsDue) {
  Begin("06:30", "2026-11-22 06:00");
  const char* kept =
      "(function() local text = '' for _, name in ipairs{'Done', 'Active', 'LastAt', 'Next', 'Q'} "
      "do text = text .. tostring(debug.getmetatable(fb).__retained(fb)[name]) .. ' ' end "
      "return text end)()";
  const std::string before = Eval(kept);
  At("2026-11-22 06:29");
  EXPECT_EQ(Eval(kept), before) << "or the disk is written every second";
}

TEST_F(ScheduleBlock, AnAtThatChangesCountsFromThisCallOn) {
  Begin("18:00", "2026-11-22 06:00");
  Run("fb.At = '06:30'");
  EXPECT_FALSE(At("2026-11-22 06:50"));
  EXPECT_TRUE(At("2026-11-23 06:30"));
}

TEST_F(ScheduleBlock, WhileItIsNotEnabledNoTimeCounts) {
  Begin("06:30", "2026-11-22 06:00");
  Run("fb.Enable = false");
  EXPECT_FALSE(At("2026-11-22 06:29"));
  EXPECT_EQ(Eval("fb.Next"), "0");
  EXPECT_FALSE(At("2026-11-22 06:31"));
  Run("fb.Enable = true");
  EXPECT_FALSE(At("2026-11-22 06:32"));
  EXPECT_EQ(Next(), "2026-11-23 06:30 UTC");
}

TEST_F(ScheduleBlock, WithoutTimesItIsNeverTrue) {
  Begin("", "2026-11-22 06:00");
  EXPECT_EQ(Eval("fb.Next"), "0");
  EXPECT_EQ(DueBetween("2026-11-22 06:01", "2026-11-23 06:01"), "");
}

TEST_F(ScheduleBlock, AMistakeIsAnErrorOfEveryCall) {
  const std::string error =
      "test:1: SCHEDULE: At, column 8: expected a time from 00:00 to 23:59, found '24:00'";
  EXPECT_EQ(ErrorOf("fb = SCHEDULE.new{Enable = true, At = '06:30; 24:00'} fb()"), error);
  EXPECT_EQ(ErrorOf("fb()"), error);
  Run("fb.At = '06:30' fb()");
  EXPECT_EQ(ErrorOf("fb.At = '06:30; 24:00' fb.Enable = false fb()"), error);
}

TEST_F(ScheduleBlock, AClockThatSaysNonsenseDoesNoHarm) {
  Begin("06:30", "2026-11-22 06:00");
  for (const double now : {-1e300, 1e300, std::nan(""), -1.0, 1e12}) EXPECT_FALSE(AtPoint(now));
  EXPECT_FALSE(At("2026-11-22 06:01"));
  EXPECT_TRUE(At("2026-11-22 06:30"));
}

TEST_F(ScheduleBlock, DoesWhatTheDiagramsOfItsPageShow) {
  const auto diagrams = test_support::DiagramsOf(PROJECT_FOLDER "/docs/blocks/schedule.md");
  EXPECT_FALSE(diagrams.empty());
  for (const test_support::TimingDiagram& diagram : diagrams) {
    TimeZone::Use("Europe/Berlin");
    const auto midnight = static_cast<double>(Utc("2026-11-22 23:00"));  // of a Monday
    const auto set_time = [&](double since_begin) { SetNow(midnight + since_begin); };
    EXPECT_EQ(test_support::Replay(*this, diagram, set_time), diagram.text);
  }
}

}  // namespace
