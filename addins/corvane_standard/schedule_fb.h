// SPDX-License-Identifier: MIT
// SCHEDULE: is TRUE at times of day.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "addins/corvane_standard/schedule.h"
#include "block/lua_glue.h"
#include "block/strict_fb.h"
#include "block/typed_variable.h"

class ScheduleFB : public StrictFB<ScheduleFB> {
 public:
  using StrictFB::StrictFB;
  static const FBMetaEntry* GetMetaTable();
  /// Throws ScheduleError if `At` makes no sense, in every call.
  void Execute() override;
  void Restored() override { looked_at_.reset(); }

 private:
  /// Reads `At` if it has changed. @return whether it has
  bool ReadAt();
  /// Times up to this point do not count any more.
  [[nodiscard]] double DealtWith(double now);
  void Rest();
  void LookAt(double now);

  BoolVariable enable_{Find("Enable")}, q_{Find("Q")}, active_{Find("Active")};
  LrealVariable done_{Find("Done")};
  corvane_standard::Schedule schedule_;
  std::optional<std::string> read_;  // the At of schedule_
  std::optional<double> set_back_;   // since when the clock is far before Done
  std::optional<double> looked_at_;  // when nothing was due until next_
  std::optional<std::int64_t> next_;
};

DECLARE_FUNCTION_BLOCK(ScheduleFB)
