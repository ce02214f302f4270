// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/schedule_fb.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "block/cycle_time.h"

DEFINE_FUNCTION_BLOCK(ScheduleFB, "SCHEDULE")

namespace {

using corvane_standard::Schedule;
using corvane_standard::ScheduleError;

constexpr double kHour = 3600;  // s

std::string_view TextOf(const OpcUa_Variant& value) {
  const char* text = OpcUa_String_GetRawString(&value.Value.String);
  return text == nullptr ? std::string_view()
                         : std::string_view(text, OpcUa_String_StrLen(&value.Value.String));
}

/// A time that the calendar has; a clock that says anything else is taken to be at 1970.
double Sensible(double now) {
  constexpr double kLast = 1e11;  // the year 5138
  return now >= 0 && now <= kLast ? now : 0;
}

}  // namespace

const FBMetaEntry* ScheduleFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"At", "STRING", kInput, "times, such as 06:30; Mon-Fri 12:00; 1. 00:00, in local time"},
      {"Enable", "BOOL", kInput, "while FALSE, no time counts"},
      {"Q", "BOOL", kOutput, "a time has come: for one call"},
      {"Next", "DATE_AND_TIME", kOutput, "when Q will be TRUE next, 0: never"},
      {"Done", "LREAL", kRetained, "s since 1970: times up to this one have been dealt with"},
      {"Active", "BOOL", kRetained, "Enable was TRUE in the previous call"},
      {"LastAt", "STRING", kRetained, "At in the previous call"},
      {nullptr, nullptr}};
  return entries;
}

void ScheduleFB::Execute() {
  const double now = Sensible(CycleNow());
  const bool changed = ReadAt();
  q_.Set(false);
  if (!enable_.Get()) {
    Rest();
    return;
  }
  if (!active_.Get() || changed) {
    active_.Set(true);
    done_.Set(now);
    looked_at_.reset();
  }
  const bool nothing_new =
      looked_at_ && now >= *looked_at_ && (!next_ || now < static_cast<double>(*next_));
  if (!nothing_new) LookAt(now);
}

void ScheduleFB::Rest() {
  if (!active_.Get() && !next_) return;
  active_.Set(false);
  next_.reset();
  looked_at_.reset();
  SetTime("Next", std::nullopt);
}

bool ScheduleFB::ReadAt() {
  const std::string_view at = TextOf(Find("At"));
  if (read_ == at) return false;
  try {
    schedule_ = Schedule(at);
  } catch (const ScheduleError& error) {
    throw ScheduleError(std::string("SCHEDULE: At, ") + error.what());
  }
  read_ = at;
  looked_at_.reset();
  const bool changed = TextOf(Find("LastAt")) != at;  // also across a restart
  if (changed) SetValue("LastAt", *read_);
  return changed;
}

double ScheduleFB::DealtWith(double now) {
  // A clock that goes back by less repeats nothing.
  if (done_.Get() <= now + kHour) {
    set_back_.reset();
    return done_.Get();
  }
  // It was wrong before, or is wrong now, as after a start without a battery. The memory is kept
  // until something is due, in case the clock becomes right again.
  if (!set_back_ || *set_back_ > now) set_back_ = now;
  return *set_back_;
}

void ScheduleFB::LookAt(double now) {
  const double dealt_with = DealtWith(now);
  const auto point = static_cast<std::int64_t>(std::floor(now));
  const auto from = static_cast<std::int64_t>(std::floor(std::max(dealt_with, now - kHour)));
  if (const auto due = schedule_.LastIn(from, point)) {
    q_.Set(true);
    done_.Set(static_cast<double>(*due));
  }
  next_ =
      schedule_.NextAfter(std::max(point, static_cast<std::int64_t>(std::floor(DealtWith(now)))));
  looked_at_ = now;
  SetTime("Next",
          next_ ? std::optional<BlockTime>(std::chrono::sys_seconds(std::chrono::seconds(*next_)))
                : std::nullopt);
}
