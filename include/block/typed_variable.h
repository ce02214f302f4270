// SPDX-License-Identifier: MIT
// A variable of a strict block whose type the class knows, for blocks that are called thousands of
// times in a cycle: it is found by name once, when the block is created.
// Threads: as the block.
#pragma once

#include <cassert>

#include "share/opcua_variant_hlp.h"

/// Refers to a declared variable of a strict block. Its type is the declared one for as long as the
/// block lives, and blocks never give up a variable.
///
/// @tparam kType the declared type @tparam kSlot where such a value is
template <OpcUa_BuiltInType kType, class Stored, Stored OpcUa_VariantValue::*kSlot, class Value>
class TypedVariable {
 public:
  explicit TypedVariable(OpcUa_VariantHlp& variable) : variable_(&variable) {
    assert(variable.Datatype == kType);
  }

  [[nodiscard]] Value Get() const { return static_cast<Value>(variable_->Value.*kSlot); }
  void Set(Value value) { variable_->Value.*kSlot = static_cast<Stored>(value); }

 private:
  OpcUa_VariantHlp* variable_;
};

using BoolVariable =
    TypedVariable<OpcUaType_Boolean, OpcUa_Boolean, &OpcUa_VariantValue::Boolean, bool>;
using DintVariable =
    TypedVariable<OpcUaType_Int32, OpcUa_Int32, &OpcUa_VariantValue::Int32, OpcUa_Int32>;
using LrealVariable =
    TypedVariable<OpcUaType_Double, OpcUa_Double, &OpcUa_VariantValue::Double, double>;
