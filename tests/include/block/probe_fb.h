// SPDX-License-Identifier: MIT
// Blocks for tests: one with a variable of each kind, whose protected operations tests can call,
// and a second type.
#pragma once

#include <stdexcept>

#include "block/lua_glue.h"
#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"

class ProbeFB : public BaseFB<ProbeFB> {
 public:
  ProbeFB(lua_State* L, const std::string& type_name);
  ~ProbeFB() override;
  static const FBMetaEntry* GetMetaTable();
  static bool IsKnownUndeclared(std::string_view name) { return name == "Throw"; }

  /// Throws the text of the variable `Throw`, unless it is empty.
  void Execute() override;

  using BaseFB::Find;
  using BaseFB::GetBool;
  using BaseFB::GetInt;
  using BaseFB::GetReal;
  using BaseFB::GetString;
  using BaseFB::GetTime;
  using BaseFB::SetBool;
  using BaseFB::SetReal;
  using BaseFB::SetTime;
  using BaseFB::SetValue;

  static inline ProbeFB* last = nullptr;         ///< the block created last
  static inline int alive = 0;                   ///< blocks constructed and not yet destroyed
  static inline bool fail_construction = false;  ///< the constructor throws after the base's
};

DECLARE_FUNCTION_BLOCK(ProbeFB)

class OtherFB : public BaseFB<OtherFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();
};

DECLARE_FUNCTION_BLOCK(OtherFB)

/// A host with both types open, and the block `fb`.
class ProbeTest : public test_support::LuaHost {
 protected:
  ProbeTest() {
    ProbeFB::fail_construction = false;
    luaopen_ProbeFB(L());
    luaopen_OtherFB(L());
    lua_settop(L(), 0);
    Run("fb = PROBE.new()");
    test_support::TakeLog();
  }
};
