// SPDX-License-Identifier: MIT
// The variables as they were after the last changes, for clients that come later.
#pragma once

#include <map>
#include <string>

#include "runtime/bench/sampling/variables.h"

namespace corvane::bench {

class VariableModel {
 public:
  void Apply(const VariableChanges& changes);
  void Clear();
  /// All of them, as additions.
  [[nodiscard]] VariableChanges Complete() const;
  /// Null: there is no such node.
  [[nodiscard]] const Node* Find(NodeId id) const;
  /// "recipe.steps[3].time"; empty if there is no such node.
  [[nodiscard]] std::string Path(NodeId id) const;

 private:
  struct Entry {
    Node node;
    Value value;
  };
  std::map<NodeId, Entry> entries_;  // a parent has a smaller number than its children
  bool truncated_ = false;
};

}  // namespace corvane::bench
