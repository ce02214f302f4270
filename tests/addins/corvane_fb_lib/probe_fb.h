// SPDX-License-Identifier: MIT
// A block with a variable of each kind, whose protected operations tests can call.
#pragma once

#include <stdexcept>

#include "addins/corvane_fb_lib/base_fb.h"
#include "addins/corvane_fb_lib/lua_glue.h"

class ProbeFB : public BaseFB<ProbeFB> {
 public:
  ProbeFB(lua_State* L, const std::string& type_name);
  ~ProbeFB() override;
  static const FBMetaEntry* GetMetaTable();

  /// Throws the text of the variable `Throw`, unless it is empty.
  void Execute() override;

  using BaseFB::Find;
  using BaseFB::GetBool;
  using BaseFB::GetInt;
  using BaseFB::GetString;
  using BaseFB::SetBool;
  using BaseFB::SetValue;

  static inline ProbeFB* last = nullptr;         ///< the block created last
  static inline int alive = 0;                   ///< blocks constructed and not yet destroyed
  static inline bool fail_construction = false;  ///< the constructor throws after the base's
};

DECLARE_FUNCTION_BLOCK(ProbeFB)
