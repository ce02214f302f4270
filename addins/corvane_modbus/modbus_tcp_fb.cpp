// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/modbus_tcp_fb.h"

#include <algorithm>
#include <utility>

#include "block/cycle_time.h"
#include "block/duration_input.h"

DEFINE_FUNCTION_BLOCK(ModbusTcpFB, "MODBUS_TCP")

namespace {

using corvane_modbus::Outcome;
using corvane_modbus::Plan;

constexpr std::chrono::seconds kDefaultPeriod(1);

}  // namespace

const FBMetaEntry* ModbusTcpFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      plcopen::kExecute,
      {"Enable", "BOOL", kInput, "TRUE: does the same again and again, without an edge"},
      {"Period", "LREAL", kInput, "s from one to the next while Enable is TRUE; 0: 1 s"},
      {"Server", "STRING", kInput, "name or address of the Modbus server"},
      {"Port", "DINT", kInput, "its TCP port; 0: 502"},
      {"Unit", "DINT", kInput, "device behind the server (0 to 247, 255)"},
      {"Table", "STRING", kInput,
       "coils, discrete inputs, input registers, holding registers; empty: the last"},
      {"Write", "BOOL", kInput, "TRUE: writes Values, FALSE: reads"},
      {"Address", "DINT", kInput, "of the first coil, input or register, from 0"},
      {"Count", "DINT", kInput, "numbers in Format; 0: one to read, or all of Values"},
      {"Format", "STRING", kInput,
       "of a number in registers: UINT, INT, UDINT, DINT, REAL, ...; empty: UINT"},
      {"Order", "STRING", kInput, "of its octets: ABCD, CDAB, BADC, DCBA; empty: ABCD"},
      {"Values", "STRING", kInput, "numbers to write, separated by blanks"},
      {"Timeout", "LREAL", kInput, "s for connection and answer together; 0: 3 s"},
      plcopen::kBusy,
      plcopen::kDone,
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Valid", "BOOL", kOutput, "Enable is TRUE, and the last exchange has succeeded"},
      {"Age", "LREAL", kOutput, "s since the last success, at first since Enable rose"},
      {"Result", "STRING", kOutput, "numbers read, separated by blanks"},
      {"First", "LREAL", kOutput, "the first number of Result"},
      {"Exception", "DINT", kOutput, "number of the Modbus exception with ErrorId 52, otherwise 0"},
      {nullptr, nullptr}};
  return entries;
}

corvane_modbus::Inputs ModbusTcpFB::ReadInputs() {
  return {.server = GetString("Server"),
          .port = GetInt("Port"),
          .unit = GetInt("Unit"),
          .table = GetString("Table"),
          .write = GetBool("Write"),
          .address = GetInt("Address"),
          .count = GetInt("Count"),
          .format = GetString("Format"),
          .order = GetString("Order"),
          .values = GetString("Values"),
          .timeout = GetReal("Timeout")};
}

std::optional<JobFailure> ModbusTcpFB::Begin() {
  Plan plan = corvane_modbus::PlanFrom(ReadInputs());
  if (!plan.problem.empty()) return JobFailure{ErrorId::kBadValue, std::move(plan.problem)};
  format_ = plan.format;
  order_ = plan.order;
  transfer_ = std::make_unique<corvane_modbus::Transfer>(plan);
  return std::nullopt;
}

/// A job at an edge comes before what `Enable` asks for, which goes on after it.
std::optional<JobFailure> ModbusTcpFB::Start() {
  transfer_.reset();
  auto failure = Begin();
  ShowAge(CycleClock());
  return failure;
}

JobProgress ModbusTcpFB::Poll() {
  const auto progress = End();
  if (progress && progress->state == JobProgress::State::kDone) {
    SetBool("Valid", GetBool("Enable"));
  }
  ShowAge(CycleClock());
  return progress.value_or(JobProgress::Busy());
}

std::optional<JobProgress> ModbusTcpFB::End() {
  auto outcome = transfer_->Poll();
  if (!outcome) return std::nullopt;
  transfer_.reset();
  SetValue("Exception", outcome->exception);
  if (outcome->error != ErrorId::kNone) {
    return JobProgress::Failed({outcome->error, std::move(outcome->text)});
  }
  succeeded_ = CycleClock();
  const std::string text =
      format_ == nullptr ? corvane_modbus::BitsAsText(outcome->bits)
                         : corvane_modbus::NumbersAsText(outcome->registers, *format_, order_);
  SetValue("Result", text);
  SetReal("First", GetReal("Result"));
  return JobProgress::Done();
}

void ModbusTcpFB::AfterEnd() {
  const double now = CycleClock();
  if (!GetBool("Enable")) {
    if (std::exchange(enabled_, std::nullopt)) {
      transfer_.reset();
      SetBool("Valid", false);
      SetStanding(std::nullopt);
    }
  } else {
    if (!enabled_) next_ = enabled_.emplace(now);
    Repeat(now);
  }
  ShowAge(now);
}

void ModbusTcpFB::Repeat(double now) {
  if (transfer_ == nullptr && now >= next_) {
    const auto period = DurationInput(GetReal("Period"), kDefaultPeriod);
    const double seconds = std::chrono::duration<double>(period.value_or(kDefaultPeriod)).count();
    // On a fixed beat; what was missed is not made up for.
    next_ += seconds;
    if (next_ <= now) next_ = now + seconds;
    auto failure = period ? Begin()
                          : JobFailure{ErrorId::kBadValue,
                                       "Period is not a duration; give seconds, or 0 for 1 s"};
    if (failure) {
      SetValue("Exception", 0);
      ShowCyclic(JobProgress::Failed(std::move(*failure)));
    }
  }
  if (transfer_ == nullptr) return;
  if (const auto progress = End()) ShowCyclic(*progress);
}

void ModbusTcpFB::ShowCyclic(const JobProgress& progress) {
  const bool failed = progress.state == JobProgress::State::kFailed;
  SetBool("Valid", !failed);
  SetStanding(failed ? std::optional(JobFailure{progress.id, progress.text}) : std::nullopt);
}

void ModbusTcpFB::ShowAge(double now) {
  const auto since = succeeded_ ? succeeded_ : enabled_;
  SetReal("Age", since ? std::max(now - *since, 0.0) : 0.0);
}

void ModbusTcpFB::Restored() {
  JobFB::Restored();
  SetBool("Valid", false);
}
