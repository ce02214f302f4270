// SPDX-License-Identifier: MIT
#include "libs/messages/pending_changes.h"

#include <variant>

namespace messages {
namespace {

/// Puts one change where it belongs.
struct Adder {
  PendingChanges& to;

  void operator()(Outgoing& row) const { to.outgoing[row.id] = std::move(row); }
  void operator()(Incoming& row) const { to.incoming[row.id] = std::move(row); }
  void operator()(const AcceptIncoming& change) const { to.accepted[change.id] = change.when; }
  void operator()(Part& row) const { to.parts[{row.group, row.sequence}] = std::move(row); }
  void operator()(const RemoveParts& change) const {
    to.removed_groups.insert(change.group);
    std::erase_if(to.parts, [&](const auto& part) { return part.first.first == change.group; });
  }
  void operator()(Held& row) const {
    auto& place = to.held[{row.route, row.index}];
    place = std::move(row);
  }
  void operator()(RemoveHeld& change) const {
    to.held[{std::move(change.route), change.index}].reset();
  }
  void operator()(const SetLimit& change) const { to.limit_per_hour = change.per_hour; }
  void operator()(AnswerRequest& change) const { to.answers[change.id] = std::move(change); }
};

}  // namespace

void PendingChanges::Add(Change change) {
  std::visit(Adder{*this}, change);
}

bool PendingChanges::empty() const {
  return outgoing.empty() && incoming.empty() && accepted.empty() && removed_groups.empty() &&
         parts.empty() && held.empty() && !limit_per_hour.has_value() && answers.empty();
}

}  // namespace messages
