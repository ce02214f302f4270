// SPDX-License-Identifier: MIT
#include "countdown_fb.h"

DEFINE_FUNCTION_BLOCK(CountdownFB, "COUNTDOWN")

const FBMetaEntry* CountdownFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry _entries[] = {
      plcopen::kExecute,   {"Calls", "DINT", kInput, "calls that the job lasts, at least 1"},
      plcopen::kBusy,      plcopen::kDone,
      plcopen::kError,     plcopen::kErrorId,
      plcopen::kErrorText, {"Left", "DINT", kOutput, "calls until Done"},
      {nullptr, nullptr}};
  return _entries;
}

std::optional<JobFailure> CountdownFB::Start() {
  left_ = GetInt("Calls");
  if (left_ < 1) {
    return JobFailure{ErrorId::kBadValue,
                      "Calls is " + std::to_string(left_) + "; give a number above 0"};
  }
  SetValue("Left", left_);
  return std::nullopt;
}

JobProgress CountdownFB::Poll() {
  --left_;
  SetValue("Left", left_);
  return left_ == 0 ? JobProgress::Done() : JobProgress::Busy();
}
