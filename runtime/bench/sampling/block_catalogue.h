// SPDX-License-Identifier: MIT
// The block types of a Lua state, and how to read and write their variables without running code of
// the program: only the types' own C functions are called.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdint>
#include <lua.hpp>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace corvane::bench {

struct BlockVariable {
  std::string name;
  std::string type;       ///< IEC 61131-3
  std::string direction;  ///< "input", "output" or empty
  bool secret = false;
  bool writable = false;
};

struct BlockClass {
  std::string type;
  std::vector<BlockVariable> variables;  ///< in the order of their declaration
  int functions = 0;                     ///< where its functions and names are in the Lua table
  bool secrets_known = false;            ///< the type itself has been asked
  std::uint64_t counted = 0;             ///< live blocks, as far as they have been counted
  bool has_lived = false;                ///< some were counted before
};

/// Live blocks by type; only types of which there has been one.
using BlockCounts = std::map<std::string, std::uint64_t>;

class BlockCatalogue {
 public:
  /// Reads the types of a state in which no program has been loaded, and pushes a Lua table, which
  /// the functions below need. Raises a Lua error when memory runs out.
  void Open(lua_State* L);
  /// The type of the value at `index`; null if it is not a block.
  [[nodiscard]] BlockClass* Find(lua_State* L, int index) const;
  /// What has been counted. The next count begins at zero.
  void TakeCounts(BlockCounts& counts);

  // `table` is the absolute index of the table that Open pushed, `block` that of a block. They
  // raise the block's Lua errors.

  /// Finds out which variables are secrets, the first time.
  static void LearnSecrets(lua_State* L, int table, int block, BlockClass& block_class);
  /// Pushes the value of a variable.
  static void PushValue(lua_State* L, int table, int block, const BlockClass& block_class,
                        std::size_t variable);
  /// Sets a variable to the value on top, and pops that.
  static void Store(lua_State* L, int table, int block, const BlockClass& block_class,
                    std::size_t variable);

 private:
  void AddClass(lua_State* L, const std::string& type, int table);

  std::unordered_map<const void*, std::unique_ptr<BlockClass>> classes_;  // by metatable
};

}  // namespace corvane::bench
