// SPDX-License-Identifier: MIT
#include "libs/messages/pending_changes.h"

#include <algorithm>
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

void PendingChanges::Clear() {
  const std::int64_t highest = outgoing.empty() ? 0 : outgoing.rbegin()->first;
  const std::int64_t written = std::max(highest_written_, highest);
  *this = {};
  highest_written_ = written;
}

void PendingChanges::ForgetHistory(std::size_t most) {
  const auto is_forgettable = [](const auto& row) {
    return row.second.state != OutgoingState::kWaiting && !row.second.report_awaited;
  };
  if (outgoing.size() <= most) return;
  const auto first = outgoing.lower_bound(std::max(highest_written_ + 1, kFirstNewId));
  auto surplus =
      std::count_if(first, outgoing.end(), is_forgettable) - static_cast<std::ptrdiff_t>(most);
  for (auto at = first; at != outgoing.end() && surplus > 0;) {
    if (is_forgettable(*at)) {
      at = outgoing.erase(at);
      --surplus;
    } else {
      ++at;
    }
  }
}

}  // namespace messages
