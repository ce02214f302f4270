// SPDX-License-Identifier: MIT
#include "block/typed_variable.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(TypedVariable, ReadsAndWritesTheVariableThatItRefersTo) {
  OpcUa_VariantHlp variable;
  variable.SetBoolean(true);
  BoolVariable flag(variable);
  EXPECT_TRUE(flag.Get());
  flag.Set(false);
  EXPECT_EQ(variable.Value.Boolean, OpcUa_False);
  variable.SetInt32(0);
  DintVariable count(variable);
  count.Set(std::numeric_limits<OpcUa_Int32>::min());
  EXPECT_EQ(variable.Value.Int32, std::numeric_limits<OpcUa_Int32>::min());
  variable.SetDouble(0.3);
  const LrealVariable level(variable);
  EXPECT_EQ(level.Get(), 0.3);
}

TEST(TypedVariable, ABoolIsTrueForAnyOctetButZero) {
  OpcUa_VariantHlp variable;
  variable.SetBoolean(true);
  variable.Value.Boolean = 2;  // as another library may write it
  EXPECT_TRUE(BoolVariable(variable).Get());
}

}  // namespace
