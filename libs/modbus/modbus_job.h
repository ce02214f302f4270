// SPDX-License-Identifier: MIT
// The rules of MODBUS_TCP, whatever carries its requests. Threads: the one that runs the Lua state.
#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "block/cycle_time.h"
#include "block/duration_input.h"
#include "block/job_fb.h"
#include "libs/modbus/outcome.h"
#include "libs/modbus/request.h"

namespace modbus {

/// @tparam T the block class
/// @tparam Transfer one request on its way: Transfer(const Plan&) begins it without waiting,
///   `std::optional<Outcome> Poll()` says how it ended, and the destructor gives it up
template <class T, class Transfer>
class ModbusJob : public JobFB<T> {
 public:
  using JobFB<T>::JobFB;
  /// What has been sent cannot be taken back.
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;

  void Restored() override;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override;

 private:
  static constexpr std::chrono::seconds kDefaultPeriod{1};

  /// Begins a transfer with the inputs as they are. @return why they cannot work
  std::optional<JobFailure> Begin();
  /// Takes over what has come back and sets the outputs for it. @return nothing while the transfer
  /// is under way; Done or Failed
  std::optional<JobProgress> End();
  /// As a transfer ended while `Enable` is TRUE.
  void ShowCyclic(const JobProgress& progress);
  void Repeat(double now);
  void ShowAge(double now);

  [[nodiscard]] Inputs ReadInputs();

  std::unique_ptr<Transfer> transfer_;    // under way
  const NumberFormat* format_ = nullptr;  // of the transfer; null for bits
  NumberOrder order_;
  std::optional<double> enabled_;    // CycleClock when `Enable` rose; nothing while it is FALSE
  std::optional<double> succeeded_;  // CycleClock of the last success
  double next_ = 0;                  // CycleClock when the next transfer is due
};

template <class T, class Transfer>
Inputs ModbusJob<T, Transfer>::ReadInputs() {
  return {.server = this->GetString("Server"),
          .port = this->GetInt("Port"),
          .unit = this->GetInt("Unit"),
          .table = this->GetString("Table"),
          .write = this->GetBool("Write"),
          .address = this->GetInt("Address"),
          .count = this->GetInt("Count"),
          .format = this->GetString("Format"),
          .order = this->GetString("Order"),
          .values = this->GetString("Values"),
          .timeout = this->GetReal("Timeout")};
}

template <class T, class Transfer>
std::optional<JobFailure> ModbusJob<T, Transfer>::Begin() {
  Plan plan = PlanFrom(ReadInputs());
  if (!plan.problem.empty()) return JobFailure{ErrorId::kBadValue, std::move(plan.problem)};
  format_ = plan.format;
  order_ = plan.order;
  transfer_ = std::make_unique<Transfer>(plan);
  return std::nullopt;
}

/// A job at an edge comes before what `Enable` asks for, which goes on after it.
template <class T, class Transfer>
std::optional<JobFailure> ModbusJob<T, Transfer>::Start() {
  transfer_.reset();
  auto failure = Begin();
  ShowAge(CycleClock());
  return failure;
}

template <class T, class Transfer>
JobProgress ModbusJob<T, Transfer>::Poll() {
  const auto progress = End();
  if (progress && progress->state == JobProgress::State::kDone) {
    this->SetBool("Valid", this->GetBool("Enable"));
  }
  ShowAge(CycleClock());
  return progress.value_or(JobProgress::Busy());
}

template <class T, class Transfer>
std::optional<JobProgress> ModbusJob<T, Transfer>::End() {
  auto outcome = transfer_->Poll();
  if (!outcome) return std::nullopt;
  transfer_.reset();
  this->SetValue("Exception", outcome->exception);
  if (outcome->error != ErrorId::kNone) {
    return JobProgress::Failed({outcome->error, std::move(outcome->text)});
  }
  succeeded_ = CycleClock();
  const std::string text = format_ == nullptr ? BitsAsText(outcome->bits)
                                              : NumbersAsText(outcome->registers, *format_, order_);
  this->SetValue("Result", text);
  this->SetReal("First", this->GetReal("Result"));
  return JobProgress::Done();
}

template <class T, class Transfer>
void ModbusJob<T, Transfer>::AfterEnd() {
  const double now = CycleClock();
  if (!this->GetBool("Enable")) {
    if (std::exchange(enabled_, std::nullopt)) {
      transfer_.reset();
      this->SetBool("Valid", false);
      this->SetStanding(std::nullopt);
    }
  } else {
    if (!enabled_) next_ = enabled_.emplace(now);
    Repeat(now);
  }
  ShowAge(now);
}

template <class T, class Transfer>
void ModbusJob<T, Transfer>::Repeat(double now) {
  if (transfer_ == nullptr && now >= next_) {
    const auto period = DurationInput(this->GetReal("Period"), kDefaultPeriod);
    const double seconds = std::chrono::duration<double>(period.value_or(kDefaultPeriod)).count();
    // On a fixed beat; what was missed is not made up for.
    next_ += seconds;
    if (next_ <= now) next_ = now + seconds;
    auto failure = period ? Begin()
                          : JobFailure{ErrorId::kBadValue,
                                       "Period is not a duration; give seconds, or 0 for 1 s"};
    if (failure) {
      this->SetValue("Exception", 0);
      ShowCyclic(JobProgress::Failed(std::move(*failure)));
    }
  }
  if (transfer_ == nullptr) return;
  if (const auto progress = End()) ShowCyclic(*progress);
}

template <class T, class Transfer>
void ModbusJob<T, Transfer>::ShowCyclic(const JobProgress& progress) {
  const bool failed = progress.state == JobProgress::State::kFailed;
  this->SetBool("Valid", !failed);
  this->SetStanding(failed ? std::optional(JobFailure{progress.id, progress.text}) : std::nullopt);
}

template <class T, class Transfer>
void ModbusJob<T, Transfer>::ShowAge(double now) {
  const auto since = succeeded_ ? succeeded_ : enabled_;
  this->SetReal("Age", since ? std::max(now - *since, 0.0) : 0.0);
}

template <class T, class Transfer>
void ModbusJob<T, Transfer>::Restored() {
  JobFB<T>::Restored();
  this->SetBool("Valid", false);
}

}  // namespace modbus
