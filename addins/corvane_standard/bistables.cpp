// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/bistables.h"

DEFINE_FUNCTION_BLOCK(SrFB, "SR")
DEFINE_FUNCTION_BLOCK(RsFB, "RS")

const FBMetaEntry* SrFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {{"S1", "BOOL", kInput, "sets Q1, also against R"},
                                        {"R", "BOOL", kInput, "resets Q1, unless S1 is TRUE"},
                                        {"Q1", "BOOL", kOutput, "the state"},
                                        {nullptr, nullptr}};
  return entries;
}

void SrFB::Execute() {
  q1_.Set(s1_.Get() || (!r_.Get() && q1_.Get()));
}

const FBMetaEntry* RsFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {{"S", "BOOL", kInput, "sets Q1, unless R1 is TRUE"},
                                        {"R1", "BOOL", kInput, "resets Q1, also against S"},
                                        {"Q1", "BOOL", kOutput, "the state"},
                                        {nullptr, nullptr}};
  return entries;
}

void RsFB::Execute() {
  q1_.Set(!r1_.Get() && (s_.Get() || q1_.Get()));
}
