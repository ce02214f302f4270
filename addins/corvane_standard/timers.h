// SPDX-License-Identifier: MIT
// TON, TOF and TP: timers (IEC 61131-3, third edition, table 46). Time is that of the cycle, so
// that all calls of a cycle agree. PT may change at any time, and counts from the next call on. A
// negative or NaN PT counts as 0.
// Threads: the one that runs the Lua state.
#pragma once

#include <optional>

#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

namespace corvane_standard {

/// The time that passes while a timer runs.
class RunningTime {
 public:
  /// The time since the first call after a Stop, plus what ET had then: a timer that was restored
  /// in the middle goes on from there. In seconds.
  double Since(double elapsed_before);
  void Stop() { start_.reset(); }

 private:
  std::optional<double> start_;  // on the clock of the cycles
};

/// The variables that all timers have, and what they share.
template <class T>
class TimerFB : public StrictFB<T> {
 public:
  using StrictFB<T>::StrictFB;

  void Restored() override { time_.Stop(); }

 protected:
  /// Lets the time pass: sets ET, at most to PT. @return whether PT is over
  bool Run();
  /// The next Run begins with ET at 0.
  void Reset();

  BoolVariable in_{this->Find("IN")}, q_{this->Find("Q")};
  LrealVariable pt_{this->Find("PT")}, et_{this->Find("ET")};
  RunningTime time_;
};

}  // namespace corvane_standard

/// TON: `Q` follows a TRUE of `IN` after `PT`, and a FALSE at once.
class TonFB : public corvane_standard::TimerFB<TonFB> {
 public:
  using TimerFB::TimerFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;
};

/// TOF: `Q` follows a TRUE of `IN` at once, and a FALSE after `PT`.
class TofFB : public corvane_standard::TimerFB<TofFB> {
 public:
  using TimerFB::TimerFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;
};

/// TP: a rising edge of `IN` makes `Q` TRUE for `PT`; what `IN` does meanwhile does not matter.
class TpFB : public corvane_standard::TimerFB<TpFB> {
 public:
  using TimerFB::TimerFB;
  static const FBMetaEntry* GetMetaTable();
  void Execute() override;

 private:
  BoolVariable last_in_{Find("LastIN")};
};

DECLARE_FUNCTION_BLOCK(TonFB)
DECLARE_FUNCTION_BLOCK(TofFB)
DECLARE_FUNCTION_BLOCK(TpFB)
