// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_time.h"

#include <atomic>
#include <chrono>

#include "corvane/program.h"

namespace corvane {
namespace {

// Apart: an answer may be one cycle older than the other, but not half of each.
std::atomic<double> cycle_clock{0};
std::atomic<double> cycle_now{0};
std::atomic<bool> stands_still{false};

template <class Clock>
double Seconds() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

}  // namespace

CycleTime CycleTime::Read() {
  return {Seconds<std::chrono::steady_clock>(), Seconds<std::chrono::system_clock>()};
}

void SetCycleTime(const CycleTime& time) {
  cycle_clock = time.clock;
  cycle_now = time.now;
}

StandingTime::StandingTime() {
  SetCycleTime(CycleTime::Read());
  stands_still = true;
}

StandingTime::~StandingTime() {
  stands_still = false;
}

}  // namespace corvane

double CorvaneCycleClock() {
  return corvane::stands_still ? corvane::cycle_clock.load() : corvane::CycleTime::Read().clock;
}

double CorvaneCycleNow() {
  return corvane::stands_still ? corvane::cycle_now.load() : corvane::CycleTime::Read().now;
}
