// SPDX-License-Identifier: MIT
// What a variant owns and releases; the sanitizers see a leak or a double release.
#include <gtest/gtest.h>

#include <cstring>

#include "opcua/opcua.h"

namespace {

bool IsScalarNull(const OpcUa_Variant& variant) {
  static const OpcUa_Variant null{};
  return std::memcmp(&variant, &null, sizeof variant) == 0;
}

TEST(Variant, InitializeMakesAScalarNull) {
  OpcUa_Variant variant;
  std::memset(&variant, 0xFF, sizeof variant);  // cppcheck-suppress memsetClassFloat
  OpcUa_Variant_Initialize(&variant);
  EXPECT_TRUE(IsScalarNull(variant));
}

TEST(Variant, ClearReleasesAStringAndLeavesNull) {
  OpcUa_Variant variant;
  OpcUa_Variant_Initialize(&variant);
  variant.Datatype = OpcUaType_String;
  OpcUa_String_AttachToString("owned", 5, 0, OpcUa_True, OpcUa_True, &variant.Value.String);
  OpcUa_Variant_Clear(&variant);
  EXPECT_TRUE(IsScalarNull(variant));
  OpcUa_Variant_Clear(&variant);
}

TEST(Variant, ClearLeavesABorrowedStringAlone) {
  char text[] = "borrowed";
  OpcUa_Variant variant;
  OpcUa_Variant_Initialize(&variant);
  variant.Datatype = OpcUaType_String;
  OpcUa_String_AttachToString(text, 8, 0, OpcUa_False, OpcUa_False, &variant.Value.String);
  OpcUa_Variant_Clear(&variant);
  EXPECT_STREQ(text, "borrowed");
}

TEST(Variant, ClearReleasesArrays) {
  OpcUa_Variant variant;
  OpcUa_Variant_Initialize(&variant);
  variant.Datatype = OpcUaType_Double;
  variant.ArrayType = OpcUa_VariantArrayType_Array;
  variant.Value.Array.Length = 4;
  variant.Value.Array.Value.Elements = OpcUa_Memory_Alloc(4 * sizeof(double));
  OpcUa_Variant_Clear(&variant);
  EXPECT_TRUE(IsScalarNull(variant));
}

TEST(Variant, ClearReleasesARecordMadeWithNew) {
  OpcUa_Variant variant;
  OpcUa_Variant_Initialize(&variant);
  variant.Datatype = OpcUaType_DataValue;
  variant.Value.DataValue = new OpcUa_DataValue{};
  OpcUa_Variant_Clear(&variant);
  EXPECT_TRUE(IsScalarNull(variant));
}

TEST(Variant, ClearOfNullPointersDoesNothing) {
  OpcUa_Variant_Clear(nullptr);
  OpcUa_Variant_Initialize(nullptr);
  OpcUa_Memory_Free(nullptr);
}

TEST(Memory, ThatCannotBeAllocatedIsNull) {
  EXPECT_EQ(OpcUa_Memory_Alloc(SIZE_MAX / 2 + 1), nullptr);
}

}  // namespace
