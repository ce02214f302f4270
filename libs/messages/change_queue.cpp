// SPDX-License-Identifier: MIT
#include "libs/messages/change_queue.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <variant>

#include "libs/messages/row_fields.h"

namespace messages {
namespace {

constexpr std::size_t kBlock = 16'384;
/// A change that does not fit makes its block grow, which costs a copy of the block.
constexpr std::size_t kUsualChange = 1'024;

/// Appends values to a block.
class OctetWriter {
 public:
  explicit OctetWriter(std::string& to) : to_(to) {}

  OctetWriter& operator<<(const std::string& text) {
    *this << text.size();
    to_.append(text);
    return *this;
  }
  OctetWriter& operator<<(WallTime time) { return *this << time.time_since_epoch().count(); }
  template <std::integral Number>
  OctetWriter& operator<<(Number number) {
    std::array<char, sizeof number> octets{};
    std::memcpy(octets.data(), &number, sizeof number);
    to_.append(octets.data(), octets.size());
    return *this;
  }

 private:
  std::string& to_;
};

/// Takes values from a block, in the order in which OctetWriter put them there.
class OctetReader {
 public:
  explicit OctetReader(std::string_view from) : from_(from) {}

  [[nodiscard]] bool AtEnd() const { return from_.empty(); }

  OctetReader& operator>>(std::string& text) {
    std::size_t size = 0;
    *this >> size;
    text = from_.substr(0, size);
    from_.remove_prefix(size);
    return *this;
  }
  OctetReader& operator>>(WallTime& time) {
    WallTime::rep count = 0;
    *this >> count;
    time = WallTime(WallTime::duration(count));
    return *this;
  }
  template <std::integral Number>
  OctetReader& operator>>(Number& number) {
    std::memcpy(&number, from_.data(), sizeof number);
    from_.remove_prefix(sizeof number);
    return *this;
  }

 private:
  std::string_view from_;
};

void Write(OctetWriter& to, const Outgoing& row) {
  WriteFields(to, row, row.id, row.job);
}
void Write(OctetWriter& to, const Incoming& row) {
  WriteFields(to, row, row.id);
}
void Write(OctetWriter& to, const Part& row) {
  WriteFields(to, row);
}
void Write(OctetWriter& to, const Held& row) {
  WriteFields(to, row);
}
void Write(OctetWriter& to, const AcceptIncoming& change) {
  to << change.id << change.when;
}
void Write(OctetWriter& to, const RemoveParts& change) {
  to << change.group;
}
void Write(OctetWriter& to, const RemoveHeld& change) {
  to << change.route << change.index;
}
void Write(OctetWriter& to, const SetLimit& change) {
  to << change.per_hour;
}
void Write(OctetWriter& to, const AnswerRequest& change) {
  to << change.id << change.done << change.outcome;
}

template <class Row>
void Read(OctetReader& from, Row& row) {
  ReadFields(from, row);
}
void Read(OctetReader& from, AcceptIncoming& change) {
  from >> change.id >> change.when;
}
void Read(OctetReader& from, RemoveParts& change) {
  from >> change.group;
}
void Read(OctetReader& from, RemoveHeld& change) {
  from >> change.route >> change.index;
}
void Read(OctetReader& from, SetLimit& change) {
  from >> change.per_hour;
}
void Read(OctetReader& from, AnswerRequest& change) {
  from >> change.id >> change.done >> change.outcome;
}

/// One reader for each alternative of Change, by its index.
template <std::size_t... kIndex>
Change ReadAlternative(OctetReader& from, std::size_t index,
                       std::index_sequence<kIndex...> /*all*/) {
  Change change;
  (void)((index == kIndex && (Read(from, change.emplace<kIndex>()), true)) || ...);
  return change;
}

Change ReadChange(OctetReader& from) {
  std::uint8_t index = 0;
  from >> index;
  return ReadAlternative(from, index, std::make_index_sequence<std::variant_size_v<Change>>());
}

}  // namespace

void ChangeQueue::Push(const Change& change) {
  if (blocks_.empty() || blocks_.back().size() + kUsualChange > kBlock) {
    blocks_.emplace_back().reserve(kBlock);
  }
  OctetWriter to(blocks_.back());
  to << static_cast<std::uint8_t>(change.index());
  std::visit([&](const auto& row) { Write(to, row); }, change);
}

void ChangeQueue::MoveTo(PendingChanges& pending) {
  for (; !blocks_.empty(); blocks_.pop_front()) {
    OctetReader from(blocks_.front());
    while (!from.AtEnd()) pending.Add(ReadChange(from));
  }
}

}  // namespace messages
