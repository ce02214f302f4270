// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/bench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "runtime/bench/sampling/variable_model.h"
#include "runtime/corvane/addin.h"
#include "tests/support/lua_host.h"

namespace {

using corvane::CycleFacts;
using corvane::bench::Bench;
using corvane::bench::CycleReport;
using corvane::bench::Value;
using corvane::bench::VariableChanges;
using corvane::bench::VariableModel;
using namespace std::chrono_literals;

class BenchTest : public test_support::LuaHost {
 protected:
  static void SetUpTestSuite() { static const corvane::Addin addin(ADDIN_FILE); }

  BenchTest() { bench_.Follow(L()); }

  void Cycle(std::chrono::nanoseconds later = 10ms) {
    facts_.end += later;
    bench_.AfterCycle(facts_);
  }
  /// What a second of cycles reports.
  VariableChanges AfterASecond() {
    for (int i = 0; i < 100; ++i) Cycle();
    return bench_.TakeVariables();
  }

  Bench bench_;
  CycleFacts facts_{std::chrono::steady_clock::now(), 1ms, 0ms, 0};
};

TEST_F(BenchTest, SamplesOnlyWhileSomebodyLooks) {
  Run("a = 1");
  EXPECT_TRUE(AfterASecond().empty());
  bench_.SetWatched(true);
  const VariableChanges first = AfterASecond();
  EXPECT_TRUE(first.complete);
  EXPECT_EQ(first.added.size(), 1u);
  Run("a = 2");
  const VariableChanges second = AfterASecond();
  EXPECT_FALSE(second.complete);
  ASSERT_EQ(second.values.size(), 1u);
  EXPECT_EQ(second.values[0].second, Value(2.0));
  bench_.SetWatched(false);
  Run("a = 3");
  EXPECT_TRUE(AfterASecond().empty());
  bench_.SetWatched(true);
  EXPECT_EQ(AfterASecond().added.size(), 1u);
}

TEST_F(BenchTest, SamplesFiveTimesASecond) {
  bench_.SetWatched(true);
  Run("n = 0");
  Cycle();
  static_cast<void>(bench_.TakeVariables());
  int changes = 0;
  for (int i = 0; i < 1000; ++i) {
    Run("n = n + 1");
    Cycle(1ms);
    if (!bench_.TakeVariables().empty()) ++changes;
  }
  EXPECT_GE(changes, 4);
  EXPECT_LE(changes, 6);
}

TEST_F(BenchTest, AServerThatTakesNothingForLongGetsTheLastValues) {
  bench_.SetWatched(true);
  Run("n = 0 t = {}");
  for (int i = 0; i < 1000; ++i) {
    Run("n = n + 1 t = {[n] = n}");
    Cycle();
  }
  VariableModel model;
  for (int i = 0; i < 3; ++i) model.Apply(AfterASecond());
  const VariableChanges all = model.Complete();
  EXPECT_EQ(all.added.size(), 3u);
  ASSERT_EQ(all.values.size(), 2u);
  EXPECT_EQ(all.values[0].second, Value(1000.0));
  EXPECT_EQ(all.values[1].second, Value(1000.0));
}

TEST_F(BenchTest, WritesAtTheEndOfTheNextCycle) {
  Run("a = 1");
  bench_.SetWatched(true);
  const auto id = AfterASecond().added.at(0).id;
  std::string error = "none";
  bench_.Write(id, Value(5.0), [&error](const std::string& text, const Value&) { error = text; });
  bench_.Poll();
  EXPECT_EQ(error, "none");
  EXPECT_EQ(Eval("a"), "1");
  Cycle(1us);
  EXPECT_EQ(Eval("a"), "5");
  bench_.Poll();
  EXPECT_EQ(error, "");
}

TEST_F(BenchTest, ReadsAWholeText) {
  Run("text = ('x'):rep(40000)");
  bench_.SetWatched(true);
  const auto id = AfterASecond().added.at(0).id;
  Value read;
  bench_.Get(id, [&read](const std::string&, const Value& value) { read = value; });
  Cycle();
  bench_.Poll();
  EXPECT_EQ(read, Value(std::string(40000, 'x')));
}

TEST_F(BenchTest, ManyRequestsAreServedOverSeveralCycles) {
  Run("a = 1");
  bench_.SetWatched(true);
  const auto id = AfterASecond().added.at(0).id;
  std::vector<double> read;
  for (int i = 0; i < 20; ++i) {
    bench_.Get(
        id, [&read](const std::string&, const Value& v) { read.push_back(std::get<double>(v)); });
  }
  std::size_t served = 0;
  while (served < 20) {
    Cycle(1us);
    bench_.Poll();
    ASSERT_GT(read.size(), served);
    EXPECT_LE(read.size(), served + 8);  // fewer if they take long
    served = read.size();
  }
  EXPECT_EQ(served, 20u);
}

TEST_F(BenchTest, TooManyRequestsAreRefused) {
  std::vector<std::string> errors;
  for (int i = 0; i < 300; ++i) {
    bench_.Get(1, [&errors](const std::string& error, const Value&) { errors.push_back(error); });
  }
  bench_.Poll();
  EXPECT_EQ(errors.size(), 44u);
  EXPECT_EQ(errors.at(0), "too many requests wait for the end of a cycle");
}

TEST_F(BenchTest, RequestsToAProgramThatEndsGetAnError) {
  std::vector<std::string> errors;
  const auto note = [&errors](const std::string& error, const Value&) { errors.push_back(error); };
  bench_.Write(1, Value(5.0), note);
  bench_.Forget();
  bench_.Get(1, note);
  bench_.Poll();
  EXPECT_THAT(errors, testing::ElementsAre("the program has ended", "the program has ended"));
  Cycle();
}

TEST_F(BenchTest, ManyRequestsForLongTextsAreSpreadOverCycles) {
  Run("for i = 1, 8 do _G['text' .. i] = ('x'):rep(128 * 1024) end");
  bench_.SetWatched(true);
  int read = 0;
  for (const auto& node : AfterASecond().added) {
    bench_.Get(node.id, [&](const std::string& error, const Value& value) {
      EXPECT_EQ(error, "");
      EXPECT_EQ(std::get<std::string>(value).size(), 128u * 1024);
      ++read;
    });
  }
  for (int i = 0; i < 8; ++i) Cycle(1us);  // one a cycle at least
  bench_.Poll();
  EXPECT_EQ(read, 8);
}

TEST_F(BenchTest, CountsTheBlocksWhenTheProgramStartsAndWhileSomebodyAsks) {
  Run("timer = SEND_SMS.new() other = SEND_SMS.new()");
  Cycle();
  EXPECT_THAT(bench_.Blocks(), testing::UnorderedElementsAre(testing::Pair("SEND_SMS", 2)));
  Run("other = nil");
  Collect();
  Cycle(1s);
  EXPECT_THAT(bench_.Blocks(), testing::UnorderedElementsAre(testing::Pair("SEND_SMS", 1)));
  Run("timer = nil");
  Collect();
  Cycle(1s);
  EXPECT_THAT(bench_.Blocks(), testing::UnorderedElementsAre(testing::Pair("SEND_SMS", 0)));
  Cycle(400s);  // nobody has asked for a while: this count is the last
  Run("timer = SEND_SMS.new()");
  Cycle(2s);
  EXPECT_THAT(bench_.Blocks(), testing::UnorderedElementsAre(testing::Pair("SEND_SMS", 0)));
}

TEST_F(BenchTest, CyclesAreCountedAlsoWhileNobodyLooks) {
  for (int i = 0; i < 1000; ++i) {
    facts_.duration = std::chrono::milliseconds(i % 10 == 0 ? 3 : 1);
    facts_.lateness = std::chrono::microseconds(50);
    if (i == 500) ++facts_.overruns;
    Cycle();
  }
  const CycleReport report = bench_.Cycles();
  EXPECT_GE(report.cycles, 980u);
  EXPECT_EQ(report.overruns, 1u);
  ASSERT_GE(report.last.size(), 48u);
  EXPECT_LE(report.last.size(), 50u);
  EXPECT_NEAR(report.last[10].mean, 0.0012, 1e-4);
  EXPECT_NEAR(report.last[10].longest, 0.003, 1e-9);
  EXPECT_NEAR(report.last[10].latest, 50e-6, 1e-9);
  // At most 1 ms: the seventh class; 2 to 5 ms: the ninth.
  EXPECT_EQ(report.histogram[6] + report.histogram[8], report.cycles);
  EXPECT_NEAR(static_cast<double>(report.histogram[8]), 100, 3);
}

TEST_F(BenchTest, KeepsTenMinutesOfCycles) {
  for (int i = 0; i < 4000; ++i) Cycle(200ms);
  EXPECT_EQ(bench_.Cycles().last.size(), 3000u);
}

TEST_F(BenchTest, TellsHowLongAgoTheLastCycleEnded) {
  EXPECT_EQ(bench_.SecondsSinceCycle(), 0);
  facts_.end = std::chrono::steady_clock::now() - 5s;
  Cycle(0ms);
  EXPECT_GE(bench_.SecondsSinceCycle(), 5);
}

TEST_F(BenchTest, ServerAndCyclesWorkAtTheSameTime) {
  Run("n = 0 t = {}");
  std::atomic<bool> stop = false;
  std::atomic<int> answers = 0;
  std::thread server([&] {
    const auto note = [&answers](const std::string&, const Value&) { ++answers; };
    while (!stop) {
      bench_.SetWatched(true);
      for (int seen = 0; seen == 0 && !stop; std::this_thread::yield()) {
        for (const auto& node : bench_.TakeVariables().added) {
          bench_.Write(node.id, Value(1.0), note);
          ++seen;
        }
        static_cast<void>(bench_.Cycles());
        bench_.Poll();
      }
      bench_.Poll();
      bench_.SetWatched(false);
    }
  });
  while (answers < 20) {
    Run("n = n + 1 t[n % 10] = n");
    Cycle();
  }
  stop = true;
  server.join();
}

}  // namespace
