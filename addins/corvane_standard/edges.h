// SPDX-License-Identifier: MIT
// R_TRIG and F_TRIG: edges of an input (IEC 61131-3, third edition, table 44).
// Threads: the one that runs the Lua state.
#pragma once

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

/// R_TRIG: `Q` is TRUE for one call when `CLK` has become TRUE. TRUE in the first call counts.
class RTrigFB : public StrictFB<RTrigFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable clk_{Find("CLK")}, q_{Find("Q")}, m_{Find("M")};
};

/// F_TRIG: `Q` is TRUE for one call when `CLK` has become FALSE. FALSE in the first call counts, as
/// the standard has it.
class FTrigFB : public StrictFB<FTrigFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable clk_{Find("CLK")}, q_{Find("Q")}, m_{Find("M")};
};

DECLARE_FUNCTION_BLOCK(RTrigFB)
DECLARE_FUNCTION_BLOCK(FTrigFB)
