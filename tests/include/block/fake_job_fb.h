// SPDX-License-Identifier: MIT
// Job blocks for tests: a test scripts what their jobs do, and reads what the blocks were asked.
#pragma once

#include <deque>
#include <stdexcept>

#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"

/// What the next jobs of a fake block do, and what was asked of it.
struct JobScript {
  std::optional<JobFailure> refusal;         ///< what Start returns
  std::deque<JobProgress> progress;          ///< what each Poll returns; Busy when there is no more
  std::optional<JobFailure> standing;        ///< what AfterEnd shows
  std::string thrown;                        ///< Start and Poll throw it, unless it is empty
  int starts = 0, polls = 0, after_end = 0;  ///< calls of each function
};

/// @tparam T its class, which chooses what an edge does while a job is under way
template <class T>
class FakeJob : public JobFB<T> {
 public:
  FakeJob(lua_State* L, const std::string& type_name) : JobFB<T>(L, type_name) { ++alive; }
  ~FakeJob() override { --alive; }
  static const FBMetaEntry* GetMetaTable();

  std::optional<JobFailure> Start() override {
    ++script.starts;
    Throw();
    if (script.refusal.has_value()) return script.refusal;
    this->SetValue("Sent", this->GetInt("Port"));
    this->SetValue("Told", this->GetString("Receiver"));
    return std::nullopt;
  }
  JobProgress Poll() override {
    ++script.polls;
    Throw();
    if (script.progress.empty()) return JobProgress::Busy();
    JobProgress next = script.progress.front();
    script.progress.pop_front();
    return next;
  }
  void AfterEnd() override {
    ++script.after_end;
    this->SetStanding(script.standing);
  }

  using JobFB<T>::GetReal;
  using JobFB<T>::GetTime;
  using JobFB<T>::SetReal;
  using JobFB<T>::SetTime;

  static inline JobScript script;
  static inline int alive = 0;  ///< blocks constructed and not yet destroyed

 private:
  static void Throw() {
    if (!script.thrown.empty()) throw std::runtime_error(script.thrown);
  }
};

/// An edge while busy starts a new job.
class QueueingJobFB : public FakeJob<QueueingJobFB> {
 public:
  using FakeJob::FakeJob;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kStartsNewJob;
};
DECLARE_FUNCTION_BLOCK(QueueingJobFB)

/// An edge while busy is ignored.
class SingleJobFB : public FakeJob<SingleJobFB> {
 public:
  using FakeJob::FakeJob;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;
};
DECLARE_FUNCTION_BLOCK(SingleJobFB)

/// A host with both types open, and the block `fb` of the first, `single` of the second.
class JobTest : public test_support::LuaHost {
 protected:
  JobTest() {
    QueueingJobFB::script = {};
    SingleJobFB::script = {};
    luaopen_QueueingJobFB(L());
    luaopen_SingleJobFB(L());
    lua_settop(L(), 0);
    Run("fb = FAKE_OUTBOX.new() single = FAKE_PROCESS.new()");
    test_support::TakeLog();
  }
};
