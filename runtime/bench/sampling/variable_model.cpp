// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/variable_model.h"

namespace corvane::bench {

void VariableModel::Apply(const VariableChanges& changes) {
  if (changes.complete) entries_.clear();
  for (const Node& node : changes.added) entries_[node.id] = {node, {}};
  for (const auto& [id, value] : changes.values) {
    if (const auto found = entries_.find(id); found != entries_.end()) found->second.value = value;
  }
  for (const NodeId id : changes.removed) entries_.erase(id);
  truncated_ = changes.truncated;
}

void VariableModel::Clear() {
  entries_.clear();
  truncated_ = false;
}

VariableChanges VariableModel::Complete() const {
  VariableChanges all;
  for (const auto& [id, entry] : entries_) {
    all.added.push_back(entry.node);
    if (entry.node.kind == NodeKind::kValue) all.values.emplace_back(id, entry.value);
  }
  all.complete = true;
  all.truncated = truncated_;
  return all;
}

const Node* VariableModel::Find(NodeId id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second.node;
}

std::string VariableModel::Path(NodeId id) const {
  const Node* const node = Find(id);
  if (node == nullptr) return {};
  const std::string parent = Path(node->parent);
  return parent.empty() || node->name.starts_with('[') ? parent + node->name
                                                       : parent + "." + node->name;
}

}  // namespace corvane::bench
