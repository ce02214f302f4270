// SPDX-License-Identifier: MIT
// The variables of one block, by their names.
// Threads: one at a time, as the block itself.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "block/declaration.h"
#include "share/opcua_variant_hlp.h"

/// The slot of one variable.
struct FBInput {
  OpcUa_VariantHlp value;
  const FBMetaEntry* declared = nullptr;  ///< its row of the declaration table, if it has one
};

/// Variables are added and never removed. A small table next to the map holds the settled ones,
/// which are found without a search and without copying the name. Of two variables with the same
/// slot the first gets it, and the other is found in the map.
class BlockVariables {
 public:
  /// The variable of this name, added as Null if there is none. Throws std::bad_alloc.
  FBInput& Find(std::string_view name) {
    FBInput* settled = FindSettled(name);
    return settled != nullptr ? *settled : FindEntry(name).second;
  }
  /// As Find; the variable is then settled, if its slot is free.
  FBInput& Settle(std::string_view name) {
    Entry& entry = FindEntry(name);
    Entry*& slot = settled_[SlotOf(name)];
    if (slot == nullptr) slot = &entry;
    return entry.second;
  }
  /// The variable of this name, otherwise null; none is added.
  [[nodiscard]] FBInput* FindExisting(std::string_view name) noexcept {
    FBInput* settled = FindSettled(name);
    if (settled != nullptr) return settled;
    const auto found = map_.find(name);
    return found != map_.end() ? &found->second : nullptr;
  }
  /// The variable of this name if it is settled, otherwise null.
  [[nodiscard]] FBInput* FindSettled(std::string_view name) noexcept {
    Entry* entry = settled_[SlotOf(name)];
    const bool same = entry != nullptr && entry->first == name;
    return same ? &entry->second : nullptr;
  }

 private:
  using Map = std::map<std::string, FBInput, std::less<>>;  // std::less<> needs no copy of a name
  using Entry = Map::value_type;
  static constexpr std::size_t kSlots = 16;

  Entry& FindEntry(std::string_view name) {
    const auto found = map_.find(name);
    return found != map_.end() ? *found : *map_.try_emplace(std::string(name)).first;
  }
  /// With these factors the variables of our blocks have slots of their own, except a few of
  /// SEND_EMAIL.
  static std::size_t SlotOf(std::string_view name) {
    if (name.empty()) return 0;
    const std::size_t first = static_cast<unsigned char>(name.front());
    const std::size_t last = static_cast<unsigned char>(name.back());
    return (name.size() + 5 * first + last) % kSlots;
  }

  Map map_;
  std::array<Entry*, kSlots> settled_{};
};
