// SPDX-License-Identifier: MIT
// What identifies a variable from one pass over the program to the next. Plain data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "runtime/bench/sampling/variables.h"

namespace corvane::bench {

/// Where the variable is, as seen from its parent.
enum class PlaceKind : std::uint8_t { kText, kNumber, kBoolean, kUpvalue, kUnreached };

struct VariableKeyView {
  NodeId parent = 0;
  PlaceKind place = PlaceKind::kText;
  int lua_type = 0;        ///< of the value: a variable of another type is another one
  std::uint64_t bits = 0;  ///< of the number, boolean, upvalue's identity or block's number
  std::string_view text;   ///< of a text
  bool operator==(const VariableKeyView&) const = default;
};

struct VariableKey {
  NodeId parent = 0;
  PlaceKind place = PlaceKind::kText;
  int lua_type = 0;
  std::uint64_t bits = 0;
  std::string text;

  VariableKey() = default;
  explicit VariableKey(const VariableKeyView& view)
      : parent(view.parent),
        place(view.place),
        lua_type(view.lua_type),
        bits(view.bits),
        text(view.text) {}
  [[nodiscard]] VariableKeyView View() const { return {parent, place, lua_type, bits, text}; }
};

inline VariableKeyView ViewOf(const VariableKey& key) {
  return key.View();
}
inline VariableKeyView ViewOf(const VariableKeyView& key) {
  return key;
}

struct VariableKeyHash {
  using is_transparent = void;
  std::size_t operator()(const auto& key) const {
    const VariableKeyView view = ViewOf(key);
    const std::size_t number = std::hash<std::uint64_t>()(
        view.bits * 0x9E3779B97F4A7C15U + static_cast<std::uint64_t>(view.parent) * 1000003U);
    return std::hash<std::string_view>()(view.text) ^ (number + (number >> 29U));
  }
};

struct VariableKeyEqual {
  using is_transparent = void;
  bool operator()(const auto& a, const auto& b) const { return ViewOf(a) == ViewOf(b); }
};

}  // namespace corvane::bench
