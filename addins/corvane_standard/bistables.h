// SPDX-License-Identifier: MIT
// SR and RS: flip-flops (IEC 61131-3, third edition, table 43).
// Threads: the one that runs the Lua state.
#pragma once

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

/// SR: `S1` sets `Q1`, `R` resets it; if both are TRUE, it is set.
class SrFB : public StrictFB<SrFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable s1_{Find("S1")}, r_{Find("R")}, q1_{Find("Q1")};
};

/// RS: `S` sets `Q1`, `R1` resets it; if both are TRUE, it is reset.
class RsFB : public StrictFB<RsFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable s_{Find("S")}, r1_{Find("R1")}, q1_{Find("Q1")};
};

DECLARE_FUNCTION_BLOCK(SrFB)
DECLARE_FUNCTION_BLOCK(RsFB)
