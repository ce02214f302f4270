// SPDX-License-Identifier: MIT
// The declarations of block types whose doubles a test uses: those of the add-ins that are loaded,
// so that a name which fails in a run fails in a test, too. Threads: one, before tests run.
#pragma once

#include <deque>
#include <lua.hpp>
#include <string>
#include <vector>

#include "block/declaration.h"

namespace corvane::program_test {

/// The rows of one type.
class DeclarationRows {
 public:
  /// Takes what the add-in has published of the type in this state; nothing if it has no such type.
  /// Throws LuaError.
  void Read(lua_State* L, const std::string& type);
  [[nodiscard]] const FBMetaEntry* table() const { return rows_.data(); }

 private:
  std::deque<std::string> texts_;  // which the rows point to
  std::vector<FBMetaEntry> rows_{{nullptr, nullptr}};
};

/// Gives a double its declaration. @tparam T the class of the double
template <class T>
class RealDeclaration {
 public:
  static DeclarationRows& Rows() {
    static DeclarationRows rows;
    return rows;
  }
  static const FBMetaEntry* GetMetaTable() { return Rows().table(); }
};

}  // namespace corvane::program_test
