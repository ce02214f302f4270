// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/timers.h"

#include "addins/corvane_standard/rises.h"
#include "block/cycle_time.h"

DEFINE_FUNCTION_BLOCK(TonFB, "TON")
DEFINE_FUNCTION_BLOCK(TofFB, "TOF")
DEFINE_FUNCTION_BLOCK(TpFB, "TP")

namespace corvane_standard {
namespace {

/// Of two times that differ by less, neither is later: 0.1 has no exact binary form, so three steps
/// of it are not quite 0.3.
constexpr double kSameTime = 1e-6;  // s

}  // namespace

double RunningTime::Since(double elapsed_before) {
  const double now = CycleClock();
  if (!start_) start_ = now - elapsed_before;
  return now - *start_;
}

template <class T>
bool TimerFB<T>::Run() {
  const double pt = pt_.Get() > 0 ? pt_.Get() : 0;  // false for NaN
  const double elapsed = time_.Since(et_.Get());
  const bool over = elapsed > pt - kSameTime;
  et_.Set(over ? pt : elapsed);
  return over;
}

template <class T>
void TimerFB<T>::Reset() {
  time_.Stop();
  et_.Set(0);
}

}  // namespace corvane_standard

const FBMetaEntry* TonFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"IN", "BOOL", kInput, "starts the time while TRUE"},
      {"PT", "LREAL", kInput, "s until Q follows IN"},
      {"Q", "BOOL", kOutput, "IN has been TRUE for PT"},
      {"ET", "LREAL", kOutput, "s since IN became TRUE, at most PT"},
      {nullptr, nullptr}};
  return entries;
}

void TonFB::Execute() {
  if (!in_.Get()) {
    q_.Set(false);
    Reset();
  } else if (!q_.Get()) {
    q_.Set(Run());
  }
}

const FBMetaEntry* TofFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"IN", "BOOL", kInput, "sets Q; when it becomes FALSE, the time starts"},
      {"PT", "LREAL", kInput, "s until Q follows IN"},
      {"Q", "BOOL", kOutput, "IN is TRUE, or was less than PT ago"},
      {"ET", "LREAL", kOutput, "s since IN became FALSE, at most PT"},
      {nullptr, nullptr}};
  return entries;
}

void TofFB::Execute() {
  if (in_.Get()) {
    q_.Set(true);
    Reset();
  } else if (q_.Get()) {
    q_.Set(!Run());
  }
}

const FBMetaEntry* TpFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"IN", "BOOL", kInput, "a rising edge starts the pulse"},
      {"PT", "LREAL", kInput, "s that the pulse lasts"},
      {"Q", "BOOL", kOutput, "the pulse"},
      {"ET", "LREAL", kOutput, "s since the pulse began, at most PT"},
      {"LastIN", "BOOL", kRetained, "IN in the previous call"},
      {nullptr, nullptr}};
  return entries;
}

void TpFB::Execute() {
  const bool in = in_.Get();
  const bool rises = corvane_standard::Rises(last_in_, in);
  if (rises && !q_.Get()) {
    Reset();
    q_.Set(true);
  }
  if (q_.Get()) q_.Set(!Run());
  if (!q_.Get() && !in) Reset();
}
