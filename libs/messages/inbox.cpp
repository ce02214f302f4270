// SPDX-License-Identifier: MIT
#include "libs/messages/inbox.h"

#include <algorithm>
#include <utility>

namespace messages {
namespace {

constexpr std::size_t kMostJoined = 500;
constexpr int kMostTotal = 255;
constexpr int kInboxRowsPerCall = 100;

bool MakesSense(const Part& part) {
  return part.total >= 1 && part.total <= kMostTotal && part.sequence >= 1 &&
         part.sequence <= part.total;
}

Incoming MessageOf(const Part& first, const PartsText& content, bool complete) {
  Incoming message;
  message.route = first.route;
  message.sender = first.sender;
  message.text = content.text;
  message.time = first.time;
  message.has_time = first.has_time;
  const IncomingKind kind = content.binary ? IncomingKind::kBinary
                            : complete     ? IncomingKind::kText
                                           : IncomingKind::kTextWithGaps;
  message.kind = static_cast<int>(kind);
  return message;
}

/// What is left of the time to wait for other parts. If one of the clocks was not set, or has
/// been set back, nothing is known, and all of it is left.
std::chrono::milliseconds Remaining(WallTime first_seen, WallTime now) {
  if (first_seen < kClockIsSet || now < first_seen) return Inbox::kPatience;
  return std::max<std::chrono::milliseconds>(first_seen + Inbox::kPatience - now,
                                             std::chrono::milliseconds(0));
}

}  // namespace

const Inbox::Route* Inbox::Find(std::string_view route) const {
  const auto found = routes_.find(route);
  return found == routes_.end() ? nullptr : &found->second;
}

Inbox::Route& Inbox::At(std::string_view route) {
  const auto found = routes_.find(route);
  return found == routes_.end() ? routes_[std::string(route)] : found->second;
}

bool Inbox::IsOnDisk(std::uint64_t sequence) const {
  return sequence == 0 || hooks_.is_on_disk(sequence);
}

void Inbox::Load(std::deque<Incoming> inbox, std::deque<Part> parts, std::deque<Held> held) {
  loading_ =
      std::make_unique<Loading>(Loading{std::move(inbox), std::move(parts), std::move(held)});
}

void Inbox::LoadSome(const Now& now) {
  for (int i = 0; i < kInboxRowsPerCall; ++i) {
    if (!loading_->inbox.empty()) {
      LoadMessage(std::move(loading_->inbox.front()));
      loading_->inbox.pop_front();
    } else if (!loading_->held.empty()) {
      Held& row = loading_->held.front();
      At(row.route).held[row.index] = {std::move(row.digest), 0};
      loading_->held.pop_front();
    } else if (!loading_->parts.empty()) {
      LoadPart(std::move(loading_->parts.front()), now);
      loading_->parts.pop_front();
    } else {
      loading_.reset();
      loaded_ = true;
      return;
    }
  }
}

void Inbox::LoadMessage(Incoming message) {
  Route& route = At(message.route);
  route.text_octets += message.text.size();
  route.waiting.push_back({std::move(message), 0});
}

void Inbox::LoadPart(Part part, const Now& now) {
  // The file may have anything; what makes no sense stays there.
  if (!MakesSense(part) || part.group < 1 || part.group >= kFirstNewId) return;
  const Key key(part.route, part.sender, part.reference, part.wide, part.total);
  const auto [group, is_new] = groups_.try_emplace(part.group);
  if (!is_new && group->second.key != key) return;
  if (is_new) {
    group->second = {key, {}, now.steady + Remaining(part.first_seen, now.wall)};
    group_of_[key] = part.group;
    next_group_ = std::max(next_group_, part.group + 1);
  }
  Insert(group, std::move(part));
}

void Inbox::WriteAgain(const Now& now) {
  while (loading_ != nullptr) LoadSome(now);  // what has not been taken over is gone from the disk
  std::vector<Change> changes;
  for (const auto& [name, route] : routes_) {
    for (const Waiter& waiter : route.waiting) changes.emplace_back(waiter.message);
    for (const auto& [index, held] : route.held) changes.emplace_back(Held{name, index, held.pdu});
  }
  for (const auto& [number, group] : groups_) {
    for (const auto& [sequence, part] : group.parts) changes.emplace_back(part);
  }
  if (changes.empty()) return;
  const std::uint64_t written = hooks_.write(std::move(changes));
  for (auto& [name, route] : routes_) {
    for (Waiter& waiter : route.waiting) waiter.written = written;
    for (auto& [index, held] : route.held) held.written = written;
  }
}

void Inbox::Tick(const Now& now) {
  if (loading_ != nullptr) LoadSome(now);
  if (loading_ != nullptr) return;  // a message whose parts are not all loaded seems to have gaps
  if (now.steady < next_look_) return;
  next_look_ = now.steady + std::chrono::seconds(1);
  for (auto group = groups_.begin(); group != groups_.end();) {
    const auto current = group++;
    if (now.steady < current->second.deadline) continue;
    const std::string route = std::get<0>(current->second.key);
    std::vector<Change> changes;
    HandOver(current, now, changes);
    Commit(route, std::nullopt, std::move(changes));
  }
}

bool Inbox::IsHeld(std::string_view route, const Place& place) const {
  const Route* const found = Find(route);
  if (found == nullptr) return false;
  const auto held = found->held.find(place.index);
  return held != found->held.end() && held->second.pdu == place.pdu;
}

bool Inbox::IsFull(std::string_view route) const {
  const Route* const found = Find(route);
  return found != nullptr &&
         (found->waiting.size() >= kMostWaiting || found->text_octets >= kMostText);
}

void Inbox::Take(Incoming message, const std::optional<Place>& place, const Now& now) {
  const std::string route = message.route;
  std::vector<Change> changes;
  Queue(std::move(message), now, changes);
  Commit(route, place, std::move(changes));
}

void Inbox::TakePart(Part part, const std::optional<Place>& place, const Now& now) {
  if (!MakesSense(part)) {
    Take(MessageOf(part, hooks_.text({&part, 1}), true), place, now);
    return;
  }
  const std::string route = part.route;
  std::vector<Change> changes;
  if (!IsRepeated(part, At(route))) {
    const auto group = GroupOf(part, now, changes);
    part.group = group->first;
    part.first_seen =
        group->second.parts.empty() ? now.wall : group->second.parts.begin()->second.first_seen;
    changes.emplace_back(part);
    Insert(group, std::move(part));
    if (group->second.parts.size() == static_cast<std::size_t>(std::get<4>(group->second.key))) {
      changes.pop_back();  // its message is written instead
      HandOver(group, now, changes);
    } else if (At(route).parts > kMostParts) {
      GiveUpOldest(route, now, changes);
    }
  }
  Commit(route, place, std::move(changes));
}

bool Inbox::IsRepeated(const Part& part, const Route& route) const {
  if (std::ranges::find(route.joined, part.pdu) != route.joined.end()) return true;
  const auto number =
      group_of_.find(Key(part.route, part.sender, part.reference, part.wide, part.total));
  if (number == group_of_.end()) return false;
  const auto& parts = groups_.at(number->second).parts;
  const auto same = parts.find(part.sequence);
  return same != parts.end() &&
         (same->second.pdu == part.pdu || hooks_.same_content(same->second, part));
}

Inbox::Groups::iterator Inbox::GroupOf(const Part& part, const Now& now,
                                       std::vector<Change>& changes) {
  const Key key(part.route, part.sender, part.reference, part.wide, part.total);
  if (const auto number = group_of_.find(key); number != group_of_.end()) {
    const auto group = groups_.find(number->second);
    if (!group->second.parts.contains(part.sequence)) return group;
    HandOver(group, now, changes);  // the sender uses the reference again
  }
  const std::int64_t number = next_group_++;
  group_of_[key] = number;
  return groups_.emplace(number, Group{key, {}, now.steady + kPatience}).first;
}

void Inbox::Insert(Groups::iterator group, Part part) {
  Route& route = At(part.route);
  if (group->second.parts.insert_or_assign(part.sequence, std::move(part)).second) ++route.parts;
}

PartsText Inbox::Text(const Group& group) const {
  const int total = std::get<4>(group.key);
  PartsText all{{}, true};
  std::vector<Part> run;
  for (int sequence = 1; sequence <= total + 1; ++sequence) {
    const auto part = group.parts.find(sequence);
    if (part != group.parts.end()) {
      run.push_back(part->second);
      continue;
    }
    if (!run.empty()) {
      const PartsText content = hooks_.text(run);
      all.text += content.text;
      all.binary = all.binary && content.binary;
      run.clear();
    }
    if (sequence <= total) {
      all.text +=
          "[part " + std::to_string(sequence) + " of " + std::to_string(total) + " is missing]";
    }
  }
  return all;
}

void Inbox::HandOver(Groups::iterator group, const Now& now, std::vector<Change>& changes) {
  const auto& parts = group->second.parts;
  const bool complete = parts.size() == static_cast<std::size_t>(std::get<4>(group->second.key));
  Queue(MessageOf(parts.begin()->second, Text(group->second), complete), now, changes);
  changes.emplace_back(RemoveParts{group->first});
  Route& route = At(std::get<0>(group->second.key));
  route.parts -= parts.size();
  for (const auto& [sequence, part] : parts) route.joined.push_back(part.pdu);
  while (route.joined.size() > kMostJoined) route.joined.pop_front();
  group_of_.erase(group->second.key);
  groups_.erase(group);
}

void Inbox::GiveUpOldest(std::string_view route, const Now& now, std::vector<Change>& changes) {
  const auto oldest = std::ranges::find_if(
      groups_, [route](const auto& group) { return std::get<0>(group.second.key) == route; });
  if (oldest != groups_.end()) HandOver(oldest, now, changes);
}

void Inbox::Queue(Incoming message, const Now& now, std::vector<Change>& changes) {
  message.id = hooks_.new_id();
  message.received = now.wall;
  changes.emplace_back(message);
  Route& route = At(message.route);
  route.text_octets += message.text.size();
  // It is offered once it is on the disk: Commit knows its sequence number.
  route.waiting.push_back({std::move(message), UINT64_MAX});
}

void Inbox::Commit(std::string_view name, const std::optional<Place>& place,
                   std::vector<Change> changes) {
  if (place) changes.emplace_back(Held{std::string(name), place->index, place->pdu});
  if (changes.empty()) return;
  const std::uint64_t written = hooks_.write(std::move(changes));
  Route& route = At(name);
  if (place) route.held[place->index] = {place->pdu, written};
  for (auto waiter = route.waiting.rbegin();
       waiter != route.waiting.rend() && waiter->written == UINT64_MAX; ++waiter) {
    waiter->written = written;
  }
}

void Inbox::Hold(std::string_view route, const Place& place) {
  Commit(route, place, {});
}

bool Inbox::MayDelete(std::string_view route, int index) const {
  const Route* const found = Find(route);
  if (found == nullptr) return false;
  const auto held = found->held.find(index);
  return held != found->held.end() && IsOnDisk(held->second.written);
}

void Inbox::Forget(std::string_view route, int index) {
  if (At(route).held.erase(index) > 0) hooks_.write({RemoveHeld{std::string(route), index}});
}

void Inbox::KeepHeld(std::string_view route, const std::set<int>& listed) {
  std::vector<Change> changes;
  std::erase_if(At(route).held, [&](const auto& held) {
    if (listed.contains(held.first)) return false;
    changes.emplace_back(RemoveHeld{std::string(route), held.first});
    return true;
  });
  if (!changes.empty()) hooks_.write(std::move(changes));
}

const Incoming* Inbox::Offered(std::string_view route) const {
  const Route* const found = Find(route);
  if (found == nullptr || found->waiting.empty()) return nullptr;
  const Waiter& first = found->waiting.front();
  return IsOnDisk(first.written) && IsOnDisk(found->removal) ? &first.message : nullptr;
}

bool Inbox::Accept(std::string_view route, std::int64_t id, const Now& now) {
  const Incoming* const offered = Offered(route);
  if (offered == nullptr || offered->id != id) return false;
  Route& found = At(route);
  found.text_octets -= offered->text.size();
  found.waiting.pop_front();
  found.removal = hooks_.write({AcceptIncoming{id, now.wall}});
  return true;
}

std::size_t Inbox::Waiting(std::string_view route) const {
  const Route* const found = Find(route);
  if (found == nullptr) return 0;
  return found->waiting.size() + (IsOnDisk(found->removal) ? 0 : 1);
}

}  // namespace messages
