// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/hysteresis_fb.h"

DEFINE_FUNCTION_BLOCK(HysteresisFB, "HYSTERESIS")

const FBMetaEntry* HysteresisFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"IN", "LREAL", kInput, "the value"},
      {"High", "LREAL", kInput, "Q becomes TRUE above it"},
      {"Low", "LREAL", kInput, "Q becomes FALSE below it"},
      {"Q", "BOOL", kOutput, "the value was last above High, and not below Low since then"},
      {nullptr, nullptr}};
  return entries;
}

void HysteresisFB::Execute() {
  const double in = in_.Get();
  if (in < low_.Get()) {
    q_.Set(false);
  } else if (in > high_.Get()) {
    q_.Set(true);
  }
}
