// SPDX-License-Identifier: MIT
// COUNTER: counts rising edges of an input.
#pragma once

#include "block/lua_glue.h"

class CounterFB : public BaseFB<CounterFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Counts on a rising edge of `CU`. `R` sets `CV` back to 0. `Q` is TRUE when `CV` reaches `PV`.
  void Execute() override;

 private:
  bool last_cu_ = false;
};

DECLARE_FUNCTION_BLOCK(CounterFB)
