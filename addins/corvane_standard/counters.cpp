// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/counters.h"

#include <limits>

#include "addins/corvane_standard/rises.h"

DEFINE_FUNCTION_BLOCK(CtuFB, "CTU")
DEFINE_FUNCTION_BLOCK(CtdFB, "CTD")
DEFINE_FUNCTION_BLOCK(CtudFB, "CTUD")

namespace {

using corvane_standard::Rises;

constexpr OpcUa_Int32 kPvMin = std::numeric_limits<OpcUa_Int32>::min();
constexpr OpcUa_Int32 kPvMax = std::numeric_limits<OpcUa_Int32>::max();

void CountUp(DintVariable& count) {
  if (count.Get() < kPvMax) count.Set(count.Get() + 1);
}

void CountDown(DintVariable& count) {
  if (count.Get() > kPvMin) count.Set(count.Get() - 1);
}

}  // namespace

const FBMetaEntry* CtuFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {{"CU", "BOOL", kInput, "a rising edge counts up"},
                                        {"R", "BOOL", kInput, "sets CV to 0"},
                                        {"PV", "DINT", kInput, "the count that Q waits for"},
                                        {"Q", "BOOL", kOutput, "CV has reached PV"},
                                        {"CV", "DINT", kOutput, "the count"},
                                        {"LastCU", "BOOL", kRetained, "CU in the previous call"},
                                        {nullptr, nullptr}};
  return entries;
}

void CtuFB::Execute() {
  const bool up = Rises(last_cu_, cu_.Get());
  if (r_.Get()) {
    cv_.Set(0);
  } else if (up) {
    CountUp(cv_);
  }
  q_.Set(cv_.Get() >= pv_.Get());
}

const FBMetaEntry* CtdFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {{"CD", "BOOL", kInput, "a rising edge counts down"},
                                        {"LD", "BOOL", kInput, "sets CV to PV"},
                                        {"PV", "DINT", kInput, "the count to begin with"},
                                        {"Q", "BOOL", kOutput, "CV is 0 or less"},
                                        {"CV", "DINT", kOutput, "the count"},
                                        {"LastCD", "BOOL", kRetained, "CD in the previous call"},
                                        {nullptr, nullptr}};
  return entries;
}

void CtdFB::Execute() {
  const bool down = Rises(last_cd_, cd_.Get());
  if (ld_.Get()) {
    cv_.Set(pv_.Get());
  } else if (down) {
    CountDown(cv_);
  }
  q_.Set(cv_.Get() <= 0);
}

const FBMetaEntry* CtudFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"CU", "BOOL", kInput, "a rising edge counts up"},
      {"CD", "BOOL", kInput, "a rising edge counts down"},
      {"R", "BOOL", kInput, "sets CV to 0"},
      {"LD", "BOOL", kInput, "sets CV to PV, unless R is TRUE"},
      {"PV", "DINT", kInput, "the count that QU waits for, and that LD sets"},
      {"QU", "BOOL", kOutput, "CV has reached PV"},
      {"QD", "BOOL", kOutput, "CV is 0 or less"},
      {"CV", "DINT", kOutput, "the count"},
      {"LastCU", "BOOL", kRetained, "CU in the previous call"},
      {"LastCD", "BOOL", kRetained, "CD in the previous call"},
      {nullptr, nullptr}};
  return entries;
}

void CtudFB::Execute() {
  const bool up = Rises(last_cu_, cu_.Get());
  const bool down = Rises(last_cd_, cd_.Get());
  if (r_.Get()) {
    cv_.Set(0);
  } else if (ld_.Get()) {
    cv_.Set(pv_.Get());
  } else if (up && !down) {
    CountUp(cv_);
  } else if (down && !up) {
    CountDown(cv_);
  }
  qu_.Set(cv_.Get() >= pv_.Get());
  qd_.Set(cv_.Get() <= 0);
}
