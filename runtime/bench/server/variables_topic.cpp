// SPDX-License-Identifier: MIT
#include "runtime/bench/server/variables_topic.h"

#include <set>

#include "runtime/bench/server/json_text.h"
#include "runtime/bench/server/variable_json.h"

namespace corvane::bench {

void VariablesTopic::SetWatched(bool watched) {
  model_.Clear();
  bench_.SetWatched(watched);
}

std::vector<Frame> VariablesTopic::Changes() {
  VariableChanges changes = bench_.TakeVariables();
  if (changes.empty()) return {};
  model_.Apply(changes);
  // A client is not told of what has come and gone meanwhile.
  const std::set<NodeId> gone(changes.removed.begin(), changes.removed.end());
  std::erase_if(changes.added, [&gone](const Node& node) { return gone.contains(node.id); });
  std::erase_if(changes.values, [&gone](const auto& entry) { return gone.contains(entry.first); });
  return {JsonOfChanges(changes, SecondsNow())};
}

std::vector<Frame> VariablesTopic::Complete() {
  const VariableChanges all = model_.Complete();
  if (all.empty()) return {};
  return {JsonOfChanges(all, SecondsNow())};
}

}  // namespace corvane::bench
