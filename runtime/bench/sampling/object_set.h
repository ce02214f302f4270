// SPDX-License-Identifier: MIT
// A set of addresses of bounded size that is emptied in no time, since it is emptied within a
// cycle.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::bench {

class ObjectSet {
 public:
  /// More objects are not taken.
  static constexpr std::size_t kMostObjects = 20'000;

  enum class Added : std::uint8_t {
    kNew,
    kKnown,    ///< it was there already
    kRefused,  ///< there are too many
  };
  Added Insert(const void* object) {
    Slot& slot = slots_[Find(object)];
    if (slot.round == round_) return Added::kKnown;
    if (size_ == kMostObjects) return Added::kRefused;
    slot = {object, round_};
    ++size_;
    return Added::kNew;
  }
  [[nodiscard]] bool Contains(const void* object) const {
    return !slots_.empty() && slots_[Find(object)].round == round_;
  }
  /// To be called before the first Insert.
  void Clear() {
    if (slots_.empty()) slots_.resize(kSlots);
    if (++round_ == 0) {  // all rounds have been used: marks of the last time must not count again
      slots_.assign(kSlots, {});
      round_ = 1;
    }
    size_ = 0;
  }

 private:
  struct Slot {
    const void* object = nullptr;
    std::uint32_t round = 0;  // in which it was filled; the slot is empty in all others
  };
  static constexpr std::size_t kSlots = 32'768;  // a power of two; some always stay empty

  /// The object's slot, or the empty one that it would take.
  [[nodiscard]] std::size_t Find(const void* object) const {
    const auto address = std::uint64_t{std::bit_cast<std::uintptr_t>(object)};
    auto slot = static_cast<std::size_t>((address * 0x9E3779B97F4A7C15U) >> 49U);  // the upper 15
    while (slots_[slot].round == round_ && slots_[slot].object != object) {
      slot = (slot + 1) % kSlots;
    }
    return slot;
  }

  std::vector<Slot> slots_;
  std::uint32_t round_ = 0;
  std::size_t size_ = 0;
};

}  // namespace corvane::bench
