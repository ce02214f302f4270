// SPDX-License-Identifier: MIT
#include "runtime/cli/change_marks.h"

#include <utility>

namespace corvane::cli {

void ChangeMarks::Mark(std::vector<BlockState>& blocks, TimePoint now) {
  std::map<int, std::vector<Seen>> before = std::exchange(seen_, {});
  for (BlockState& block : blocks) {
    std::vector<Seen>& seen = seen_[block.number];
    seen = std::move(before[block.number]);
    const std::size_t known = seen.size();
    seen.resize(block.variables.size());
    for (std::size_t i = 0; i < seen.size(); ++i) {
      VariableState& variable = block.variables[i];
      if (seen[i].value != variable.value) {
        seen[i] = {variable.value, i < known ? now : TimePoint::min()};
      }
      variable.changed = seen[i].changed != TimePoint::min() && now - seen[i].changed < kLately;
    }
  }
}

}  // namespace corvane::cli
