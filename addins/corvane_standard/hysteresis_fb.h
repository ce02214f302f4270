// SPDX-License-Identifier: MIT
// HYSTERESIS: a switch with two limits, which a value near one of them does not make flutter.
// Threads: the one that runs the Lua state.
#pragma once

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

/// `Q` becomes TRUE when `IN` is above `High`, FALSE when it is below `Low`, and otherwise stays,
/// as it does for a NaN. If `High` is below `Low`, `Low` decides.
class HysteresisFB : public StrictFB<HysteresisFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  LrealVariable in_{Find("IN")}, high_{Find("High")}, low_{Find("Low")};
  BoolVariable q_{Find("Q")};
};

DECLARE_FUNCTION_BLOCK(HysteresisFB)
