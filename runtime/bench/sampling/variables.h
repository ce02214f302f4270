// SPDX-License-Identifier: MIT
// The variables of a running program as a tree, and how it changes. Plain data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace corvane::bench {

/// From 1. A program that makes new tables all the time uses up 32 bits within a day.
using NodeId = std::int64_t;

enum class NodeKind : std::uint8_t { kBlock, kTable, kValue };

struct Node {
  NodeId id = 0;      ///< never used again for another node
  NodeId parent = 0;  ///< 0: a global or an upvalue of the program
  std::string name;
  NodeKind kind = NodeKind::kValue;
  std::string type;       ///< block type, IEC 61131-3 type of a block's variable, or Lua's type
  std::string direction;  ///< "input", "output" or empty
  bool secret = false;    ///< its value is never known here
  bool writable = false;
};

/// A text above kLongestText octets.
struct LongText {
  std::string beginning;   ///< up to kLongestText octets, whole characters
  std::size_t length = 0;  ///< of the whole text, in octets
  std::size_t digest = 0;  ///< of its octets
  bool operator==(const LongText&) const = default;
};
inline constexpr std::size_t kLongestText = 4096;
/// Texts up to this length can be read whole; copying a longer one would lengthen the cycle.
inline constexpr std::size_t kLongestRead = std::size_t{128} * 1024;

/// monostate: nil, or a secret. Texts are octets as the program has them, not always UTF-8.
using Value = std::variant<std::monostate, bool, double, std::int64_t, std::string, LongText>;

/// To be applied in the order of the members. A value's node has been added before or is in
/// `added`.
struct VariableChanges {
  std::vector<Node> added;  ///< parents before their children
  std::vector<std::pair<NodeId, Value>> values;
  std::vector<NodeId> removed;
  bool complete = false;   ///< what was known before is void
  bool truncated = false;  ///< there are more variables than are sampled

  [[nodiscard]] bool empty() const { return added.empty() && values.empty() && removed.empty(); }
};

}  // namespace corvane::bench
