// SPDX-License-Identifier: MIT
// JobFB<T>: a block that does one job at a time, started by a rising edge of `Execute`, with the
// outputs of PLCopen's function blocks: `Busy`, `Done`, `Error`, `ErrorId`, `ErrorText`.
// Threads: as BaseFB; what a job does in other threads is up to the class.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "block/error_ids.h"
#include "block/plcopen_variables.h"
#include "block/rising_edge.h"
#include "block/strict_fb.h"

/// Why a job, or a continuous block, has failed.
struct JobFailure {
  ErrorId id;
  std::string text;  ///< a sentence: what, where, what to do
};

/// How far a job has come.
struct JobProgress {
  enum class State : std::uint8_t { kBusy, kDone, kFailed };

  /// Still under way.
  static JobProgress Busy() { return {State::kBusy, ErrorId::kNone, {}}; }
  /// Still under way in spite of this trouble, which `ErrorId` and `ErrorText` show meanwhile.
  static JobProgress Busy(JobFailure trouble) {
    return {State::kBusy, trouble.id, std::move(trouble.text)};
  }
  /// Has succeeded; a text may say what is worth knowing all the same.
  static JobProgress Done(std::string text = {}) {
    return {State::kDone, ErrorId::kNone, std::move(text)};
  }
  static JobProgress Failed(JobFailure failure) {
    return {State::kFailed, failure.id, std::move(failure.text)};
  }

  bool operator==(const JobProgress&) const = default;

  State state;
  ErrorId id;
  std::string text;
};

/// What a rising edge of `Execute` does while a job is under way.
enum class EdgeWhileBusy : std::uint8_t {
  kStartsNewJob,  ///< the outputs follow the new job; the class deals with the old one in Start
  kIsIgnored,     ///< also when the job ends in this very call
};

/// The rules of a job block:
/// - A rising edge of `Execute` (TRUE in the first call is one) starts a job. In the same call all
///   outputs are cleared, and `Busy` is set, or `Error` if the inputs cannot work.
/// - At most one of `Busy`, `Done` and `Error` is TRUE. `Done` or `Error` begins in the call in
///   which `Busy` ends, and holds while `Execute` is TRUE, at least for this one call; `ErrorId`
///   and `ErrorText` end with it. The other outputs stay until the next job.
///
/// @tparam T the block class. It has `static constexpr EdgeWhileBusy kEdgeWhileBusy`, and its table
///   the rows of plcopen_variables.h. It implements Start and Poll, not Execute.
template <class T>
class JobFB : public StrictFB<T> {
 public:
  using Failure = JobFailure;
  using Progress = JobProgress;
  using StrictFB<T>::StrictFB;

  void Execute() final {
    const bool execute = this->GetBool(plcopen::kExecute.name);
    const bool edge = execute_.Rises(execute);
    if (edge && !(busy() && T::kEdgeWhileBusy == EdgeWhileBusy::kIsIgnored)) {
      Begin();
    } else if (busy()) {
      Show(Poll());
    } else {
      AfterEnd();
      if (!execute || standing_.has_value()) Show(standing_);
    }
  }

  /// A job that was under way in the earlier run is not any more: `Busy` is FALSE, and neither
  /// `Done` nor `Error` follows. An `Execute` that was TRUE starts a job when it rises again.
  void Restored() override {
    execute_.Rises(this->GetBool(plcopen::kExecute.name));
    shown_ = ReadShown();
    if (busy()) Show(std::nullopt);
  }

 protected:
  /// Starts a job with the inputs as they are; the outputs are cleared already. It must not wait.
  /// @return why the inputs cannot work, otherwise nothing: the job is under way
  virtual std::optional<JobFailure> Start() = 0;
  /// Called once in each further call while the job is under way: sets the outputs of the class and
  /// says how far the job has come. It must not wait.
  virtual JobProgress Poll() = 0;
  /// Called instead in each call in which no job is under way, even before the first job.
  virtual void AfterEnd() {}

  /// For AfterEnd of a class that also works without an edge: the error that the outputs show from
  /// now on while there is no job to show. It ends a `Done` that `Execute` holds. Nothing: it is
  /// over.
  void SetStanding(std::optional<JobFailure> failure) {
    if (standing_.has_value() && !failure.has_value()) Show(std::nullopt);
    standing_.reset();
    if (failure.has_value()) standing_ = JobProgress::Failed(std::move(*failure));
  }

  /// Whether a job is under way.
  [[nodiscard]] bool busy() const {
    return shown_.has_value() && shown_->state == JobProgress::State::kBusy;
  }

 private:
  void Begin() {
    standing_.reset();
    shown_.reset();  // first, so that an exception of Start leaves no job under way
    this->ClearOutputs();
    std::optional<JobFailure> failure = Start();
    Show(failure.has_value() ? JobProgress::Failed(std::move(*failure)) : JobProgress::Busy());
  }

  /// Sets the five outputs; nothing: no job to show.
  void Show(std::optional<JobProgress> progress) {
    if (progress == shown_) return;
    using State = JobProgress::State;
    const auto is = [&progress](State state) {
      return progress.has_value() && progress->state == state;
    };
    this->SetValue(plcopen::kErrorText.name, progress.has_value() ? progress->text : std::string());
    this->SetValue(plcopen::kErrorId.name,
                   progress.has_value() ? static_cast<std::int32_t>(progress->id) : 0);
    this->SetBool(plcopen::kBusy.name, is(State::kBusy));
    this->SetBool(plcopen::kDone.name, is(State::kDone));
    this->SetBool(plcopen::kError.name, is(State::kFailed));
    shown_ = std::move(progress);
  }

  /// What the five outputs say.
  std::optional<JobProgress> ReadShown() {
    const std::string text = this->GetString(plcopen::kErrorText.name);
    const auto id = static_cast<ErrorId>(this->GetInt(plcopen::kErrorId.name));
    if (this->GetBool(plcopen::kBusy.name)) return JobProgress::Busy({id, text});
    if (this->GetBool(plcopen::kDone.name)) return JobProgress::Done(text);
    if (this->GetBool(plcopen::kError.name)) return JobProgress::Failed({id, text});
    return std::nullopt;
  }

  RisingEdge execute_;
  std::optional<JobProgress> shown_;     // what the outputs say
  std::optional<JobProgress> standing_;  // what they say without a job
};
