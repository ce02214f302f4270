// SPDX-License-Identifier: MIT
// The variables that a block class declares, in the table that its GetMetaTable() returns. Constant
// data.
#pragma once

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Who sets a variable. Strict blocks (strict_fb.h) refuse a program's assignment to an output.
enum class FBDirection : std::uint8_t {
  kUnstated,  ///< as in the tables of blocks that do not tell inputs from outputs
  kInput,     ///< the program
  kOutput,    ///< the block
  kRetained,  ///< the block; programs and hosts do not see it. It is kept where the block is
              ///< retained, as inputs and outputs are. For strict blocks only
};

/// One row of a block class's declaration table, which ends with a null row. Hosts show the
/// variables in the order of the rows.
struct FBMetaEntry {
  const char* name;
  const char* type;  ///< IEC 61131-3 elementary type
  FBDirection direction = FBDirection::kUnstated;
  const char* meaning = nullptr;  ///< in one line of UTF-8, with the unit; null: not stated
  bool secret = false;            ///< a password or the like: not kept where the block is retained
};

/// Whether programs and hosts do not see the variable.
constexpr bool IsHidden(const FBMetaEntry& row) {
  return row.direction == FBDirection::kRetained;
}

/// Whether the table has a row of this name that is not hidden.
inline bool Declares(const FBMetaEntry* table, std::string_view name) {
  for (; table->name != nullptr; ++table) {
    if (name == table->name) return !IsHidden(*table);
  }
  return false;
}

/// How far apart two names are: 2 for each letter that is missing, extra or different, 1 for
/// a letter in the other case (Levenshtein's distance). Letters after the 63rd do not count.
inline unsigned NameDistance(std::string_view a, std::string_view b) {
  constexpr std::size_t kLetters = 63;
  a = a.substr(0, kLetters);
  b = b.substr(0, kLetters);
  // Distances between the letters of `a` so far and each prefix of `b`.
  std::array<unsigned, kLetters + 1> row{};
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = static_cast<unsigned>(2 * j);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    unsigned diagonal = row[0];
    row[0] = static_cast<unsigned>(2 * i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const auto x = static_cast<unsigned char>(a[i - 1]);
      const auto y = static_cast<unsigned char>(b[j - 1]);
      const unsigned change = x == y ? 0 : std::tolower(x) == std::tolower(y) ? 1 : 2;
      const unsigned replaced = diagonal + change;
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 2, row[j - 1] + 2});
    }
  }
  return row[b.size()];
}

/// The declared name nearest to `name`, the first of several; null if the table has none that are
/// not hidden.
inline const char* NearestName(const FBMetaEntry* table, std::string_view name) {
  const char* nearest = nullptr;
  unsigned least = 0;
  for (; table->name != nullptr; ++table) {
    if (IsHidden(*table)) continue;
    const unsigned distance = NameDistance(name, table->name);
    if (nearest != nullptr && distance >= least) continue;
    nearest = table->name;
    least = distance;
  }
  return nearest;
}
