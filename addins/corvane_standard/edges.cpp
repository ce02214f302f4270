// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/edges.h"

#include "addins/corvane_standard/rises.h"

using corvane_standard::Rises;

DEFINE_FUNCTION_BLOCK(RTrigFB, "R_TRIG")
DEFINE_FUNCTION_BLOCK(FTrigFB, "F_TRIG")

const FBMetaEntry* RTrigFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {{"CLK", "BOOL", kInput, "the signal"},
                                        {"Q", "BOOL", kOutput, "CLK has become TRUE: for one call"},
                                        {"M", "BOOL", kRetained, "CLK in the previous call"},
                                        {nullptr, nullptr}};
  return entries;
}

void RTrigFB::Execute() {
  q_.Set(Rises(m_, clk_.Get()));
}

const FBMetaEntry* FTrigFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"CLK", "BOOL", kInput, "the signal"},
      {"Q", "BOOL", kOutput, "CLK has become FALSE: for one call"},
      {"M", "BOOL", kRetained, "CLK was FALSE in the previous call"},
      {nullptr, nullptr}};
  return entries;
}

void FTrigFB::Execute() {
  q_.Set(Rises(m_, !clk_.Get()));
}
