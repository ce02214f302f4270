// SPDX-License-Identifier: MIT
// Which variables have changed lately. Threads: one at a time.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "runtime/corvane/block_observer.h"

namespace corvane::cli {

class ChangeMarks {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::seconds kLately{2};

  /// Compares the blocks with those of the last call and sets `changed` of each variable whose
  /// value has changed within the last kLately. A variable seen for the first time has not changed.
  /// Times must not go back.
  void Mark(std::vector<BlockState>& blocks, TimePoint now);

 private:
  struct Seen {
    std::string value;
    TimePoint changed = TimePoint::min();
  };

  std::map<int, std::vector<Seen>> seen_;  // by the block's number; live blocks only
};

}  // namespace corvane::cli
