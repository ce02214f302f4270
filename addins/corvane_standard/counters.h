// SPDX-License-Identifier: MIT
// CTU, CTD and CTUD: counters of rising edges (IEC 61131-3, third edition, table 45). TRUE in the
// first call is an edge. An edge in a call that resets or loads is not counted later.
// Threads: the one that runs the Lua state.
#pragma once

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

/// CTU: counts up to the highest DINT. `R` sets `CV` to 0; `Q`: `CV` has reached `PV`.
class CtuFB : public StrictFB<CtuFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable cu_{Find("CU")}, r_{Find("R")}, q_{Find("Q")}, last_cu_{Find("LastCU")};
  DintVariable pv_{Find("PV")}, cv_{Find("CV")};
};

/// CTD: counts down to the lowest DINT. `LD` sets `CV` to `PV`; `Q`: `CV` is 0 or less.
class CtdFB : public StrictFB<CtdFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable cd_{Find("CD")}, ld_{Find("LD")}, q_{Find("Q")}, last_cd_{Find("LastCD")};
  DintVariable pv_{Find("PV")}, cv_{Find("CV")};
};

/// CTUD: both; edges of both in one call cancel each other. `R` goes before `LD`.
class CtudFB : public StrictFB<CtudFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable cu_{Find("CU")}, cd_{Find("CD")}, r_{Find("R")}, ld_{Find("LD")};
  BoolVariable qu_{Find("QU")}, qd_{Find("QD")};
  BoolVariable last_cu_{Find("LastCU")}, last_cd_{Find("LastCD")};
  DintVariable pv_{Find("PV")}, cv_{Find("CV")};
};

DECLARE_FUNCTION_BLOCK(CtuFB)
DECLARE_FUNCTION_BLOCK(CtdFB)
DECLARE_FUNCTION_BLOCK(CtudFB)
