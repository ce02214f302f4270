// SPDX-License-Identifier: MIT
// Values of a program, copied out of Lua into octets: quick, since a cycle waits for it; comparing
// two copies tells whether anything has changed.
// Threads: SnapshotWriter one that runs the Lua state; a finished snapshot belongs to any thread.
#pragma once

#include <cstddef>
#include <lua.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// The octets: each value is its mark and what follows it. The order of the octets of a number is
/// the machine's: a snapshot never leaves the process.
enum class SnapshotMark : char {
  kFalse = 'f',
  kTrue = 't',
  kNumber = 'n',  ///< a double
  kString = 's',  ///< its length (32 bits), its octets
  kTable = '{',   ///< keys and values in turn
  kEnd = '}',     ///< of a table
};

/// What programs may keep at most, in octets of a snapshot.
inline constexpr std::size_t kLargestSnapshot = std::size_t{16} * 1024 * 1024;
/// How many tables may be in one another.
inline constexpr std::size_t kDeepestTable = 100;

/// The key at `index` as a path shows it: .name, [3], [true]. A long name is cut.
[[nodiscard]] std::string LuaKeyText(lua_State* L, int index);

class SnapshotWriter {
 public:
  /// @param octets what is appended to
  SnapshotWriter(lua_State* L, std::string& octets) : L_(L), octets_(octets) {}

  void AddString(std::string_view text);
  /// Appends the table at `index` without regard to metatables. Raises a Lua error that names the
  /// path, from `name` on, of a value that is neither a boolean, a number, a string nor a table, of
  /// a table that contains itself, or of one that is nested too deeply; and when the snapshot
  /// becomes too large.
  void AddTable(int index, const std::string& name);

 private:
  struct Level {
    const void* table;
    int key;  ///< where on the stack its current key is
  };
  void AddLevel(int table);
  void AddKey(int index);
  void AddValue(int index);
  void AddNumber(int index);
  void AddStringAt(int index);
  void Refuse(const char* what);  // never returns

  lua_State* L_;
  std::string& octets_;
  std::string name_;
  std::vector<Level> levels_;
};

}  // namespace corvane
