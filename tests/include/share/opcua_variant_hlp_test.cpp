// SPDX-License-Identifier: MIT
#include "share/opcua_variant_hlp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>

#include "tests/support/captured_log.h"

namespace {

/// The text form and its status, starting with a text that must survive a failure.
struct Rendered {
  std::string text = "untouched";
  OpcUa_StatusCode status;
};

Rendered Render(const OpcUa_VariantHlp& value) {
  Rendered result;
  result.status = value.GetString(result.text);
  return result;
}

/// A value of a type, whose slot `set` sets.
template <class Set>
OpcUa_VariantHlp Value(OpcUa_BuiltInType type, Set set) {
  OpcUa_VariantHlp value;
  value.Reset(type);
  set(value.Value);
  return value;
}

std::string Text(const OpcUa_VariantHlp& value) {
  const Rendered result = Render(value);
  EXPECT_EQ(result.status, OpcUa_Good);
  return result.text;
}

TEST(VariantText, OfABooleanIsTrueOrFalse) {
  OpcUa_VariantHlp value;
  value.SetBoolean(true);
  EXPECT_EQ(Text(value), "true");
  value.SetBoolean(false);
  EXPECT_EQ(Text(value), "false");
  value.Value.Boolean = 2;
  EXPECT_EQ(Text(value), "true");
}

TEST(VariantText, OfIntegersIsDecimal) {
  EXPECT_EQ(Text(Value(OpcUaType_Int32, [](auto& v) { v.Int32 = -5; })), "-5");
  EXPECT_EQ(Text(Value(OpcUaType_UInt32, [](auto& v) { v.UInt32 = 4294967295; })), "4294967295");
  EXPECT_EQ(Text(Value(OpcUaType_UInt16, [](auto& v) { v.UInt16 = 65535; })), "65535");
  EXPECT_EQ(Text(Value(OpcUaType_Int64, [](auto& v) { v.Int64 = INT64_MIN; })),
            "-9223372036854775808");
  EXPECT_EQ(Text(Value(OpcUaType_UInt64, [](auto& v) { v.UInt64 = UINT64_MAX; })),
            "18446744073709551615");
}

TEST(VariantText, OfShortIntegersReadsTheSigned16BitSlot) {
  EXPECT_EQ(Text(Value(OpcUaType_SByte, [](auto& v) { v.SByte = -1; })), "255");
  EXPECT_EQ(Text(Value(OpcUaType_Byte, [](auto& v) { v.Byte = 200; })), "200");
  EXPECT_EQ(Text(Value(OpcUaType_Byte, [](auto& v) { v.UInt16 = 65535; })), "-1");
  EXPECT_EQ(Text(Value(OpcUaType_Int16, [](auto& v) { v.Int16 = -32768; })), "-32768");
}

TEST(VariantText, OfRealsHasSixSignificantDigits) {
  const auto text = [](double number) {
    return Text(Value(OpcUaType_Double, [number](auto& v) { v.Double = number; }));
  };
  EXPECT_EQ(text(3.14159265), "3.14159");
  EXPECT_EQ(text(0.1), "0.1");
  EXPECT_EQ(text(1e20), "1e+20");
  EXPECT_EQ(text(2.0), "2");
  EXPECT_EQ(text(-1234567.0), "-1.23457e+06");
  EXPECT_EQ(Text(Value(OpcUaType_Float, [](auto& v) { v.Float = 0.5F; })), "0.5");
  EXPECT_EQ(Text(Value(OpcUaType_Float, [](auto& v) { v.Float = 0.1F; })), "0.1");
}

TEST(VariantText, OfAStringIsItsBytes) {
  OpcUa_VariantHlp value;
  value.SetString("", 0);
  EXPECT_EQ(Text(value), "");
  value.SetString("a\0b", 3);
  EXPECT_EQ(Text(value), std::string("a\0b", 3));
  value.Datatype = OpcUaType_Extended;
  EXPECT_EQ(Text(value), std::string("a\0b", 3));
  value.Reset(OpcUaType_String);
  EXPECT_EQ(Text(value), "") << "a null string";
}

TEST(VariantText, OfNullAndStructuredTypesIsRefusedAndKeepsTheTarget) {
  for (int type = 0; type <= 255; ++type) {
    const bool has_text = (type >= 1 && type <= 12) || type == 26;
    OpcUa_VariantHlp value;
    value.Datatype = static_cast<OpcUa_Byte>(type);
    const Rendered result = Render(value);
    EXPECT_EQ(result.status, has_text ? OpcUa_Good : OpcUa_StatusCode{0x80490000}) << type;
    if (!has_text) {
      EXPECT_EQ(result.text, "untouched") << type;
    }
    value.Datatype = OpcUaType_Null;
  }
}

TEST(VariantCopy, OfAStringIsIndependent) {
  OpcUa_VariantHlp original;
  original.SetString("alarm", 5);
  const OpcUa_VariantHlp copy(original);
  original.Value.String.Content[0] = 'X';
  EXPECT_EQ(Text(copy), "alarm");
}

TEST(VariantCopy, OverAnotherValueReleasesIt) {
  OpcUa_VariantHlp value;
  value.SetString("a text that is long enough for its own memory", 44);
  OpcUa_VariantHlp number;
  number.SetInt32(3);
  value = number;
  EXPECT_EQ(Text(value), "3");
  const OpcUa_VariantHlp& same = value;
  value = same;
  EXPECT_EQ(Text(value), "3");
}

TEST(VariantCopy, ResetsTheReservedField) {
  OpcUa_VariantHlp value;
  value.Reserved = 7;
  EXPECT_EQ(OpcUa_VariantHlp(value).Reserved, 0);
}

TEST(VariantCopy, OfAStringArrayWhichHasNoTextYieldsIndependentCopies) {
  OpcUa_VariantHlp array;
  array.Datatype = OpcUaType_String;
  array.ArrayType = OpcUa_VariantArrayType_Array;
  array.Value.Array.Length = 3;
  array.Value.Array.Value.Strings =
      static_cast<OpcUa_String*>(OpcUa_Memory_Alloc(3 * sizeof(OpcUa_String)));
  const std::array texts{"one", "two", "three"};
  for (std::size_t i = 0; i < 3; ++i) {
    OpcUa_String& element = array.Value.Array.Value.Strings[i];
    OpcUa_String_Initialize(&element);
    OpcUa_String_AttachToString(texts[i], OPCUA_STRING_LENDONTCARE, 0, OpcUa_True, OpcUa_True,
                                &element);
  }
  std::string text = "as it was";
  EXPECT_EQ(array.GetString(text), OpcUa_BadNoText);
  EXPECT_EQ(text, "as it was");
  const OpcUa_VariantHlp copy(array);
  OpcUa_Variant_Clear(&array);
  ASSERT_EQ(copy.ArrayType, OpcUa_VariantArrayType_Array);
  ASSERT_EQ(copy.Value.Array.Length, 3);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_STREQ(OpcUa_String_GetRawString(&copy.Value.Array.Value.Strings[i]), texts[i]);
  }
}

TEST(VariantCopy, OfAnotherArrayIsLoggedAndCopiesNoElements) {
  OpcUa_VariantHlp array;
  array.Datatype = OpcUaType_Int32;
  array.ArrayType = OpcUa_VariantArrayType_Array;
  array.Value.Array.Length = 2;
  array.Value.Array.Value.Elements = OpcUa_Memory_Alloc(2 * sizeof(OpcUa_Int32));
  test_support::TakeLog();
  const OpcUa_VariantHlp copy(array);
  EXPECT_THAT(test_support::TakeLog(),
              testing::ElementsAre("warning OPC UA array not supprtoed for type 6"));
  EXPECT_EQ(copy.Datatype, OpcUaType_Int32);
  EXPECT_EQ(copy.ArrayType, OpcUa_VariantArrayType_Array);
  EXPECT_EQ(copy.Value.Array.Length, 0);
}

TEST(VariantCopy, OfAMatrixIsLoggedAndOfAnyHigherShapeSilentlyEmpty) {
  OpcUa_VariantHlp value;
  value.Datatype = OpcUaType_Double;
  value.ArrayType = OpcUa_VariantArrayType_Matrix;
  test_support::TakeLog();
  EXPECT_EQ(OpcUa_VariantHlp(value).ArrayType, OpcUa_VariantArrayType_Matrix);
  EXPECT_THAT(test_support::TakeLog(),
              testing::ElementsAre("warning OPC UA matrix array not supprtoed "));
  value.ArrayType = 3;
  EXPECT_EQ(OpcUa_VariantHlp(value).Datatype, OpcUaType_Double);
  EXPECT_TRUE(test_support::TakeLog().empty());
}

TEST(VariantCopy, OfALocalizedTextIsDeep) {
  OpcUa_VariantHlp value;
  value.Datatype = OpcUaType_LocalizedText;
  value.Value.LocalizedText =
      static_cast<OpcUa_LocalizedText*>(OpcUa_Memory_Alloc(sizeof(OpcUa_LocalizedText)));
  OpcUa_LocalizedText_Initialize(value.Value.LocalizedText);
  OpcUa_String_AttachToString("pump", 4, 0, OpcUa_True, OpcUa_True,
                              &value.Value.LocalizedText->Text);
  const OpcUa_VariantHlp copy(value);
  value.Reset(OpcUaType_Null);
  ASSERT_NE(copy.Value.LocalizedText, nullptr);
  EXPECT_STREQ(OpcUa_String_GetRawString(&copy.Value.LocalizedText->Text), "pump");
  EXPECT_EQ(OpcUa_String_GetRawString(&copy.Value.LocalizedText->Locale), nullptr);
}

TEST(VariantCopy, OfADataValueCopiesItsRecordAndItsInnerValue) {
  OpcUa_VariantHlp value;
  value.Datatype = OpcUaType_DataValue;
  value.Value.DataValue = new OpcUa_DataValue{};  // released by the stack
  value.Value.DataValue->StatusCode = 1;
  value.Value.DataValue->SourceTimestamp = 2;
  value.Value.DataValue->ServerTimestamp = 3;
  value.Value.DataValue->SourcePicoseconds = 4;
  value.Value.DataValue->ServerPicoseconds = 5;
  static_cast<OpcUa_Variant&>(value.Value.DataValue->Value).Datatype = OpcUaType_String;
  OpcUa_String_AttachToString("inner", 5, 0, OpcUa_True, OpcUa_True,
                              &value.Value.DataValue->Value.Value.String);
  const OpcUa_VariantHlp copy(value);
  value.Reset(OpcUaType_Null);
  const OpcUa_DataValue& data = *copy.Value.DataValue;
  EXPECT_EQ(data.StatusCode, 1u);
  EXPECT_EQ(data.SourceTimestamp, 2);
  EXPECT_EQ(data.ServerTimestamp, 3);
  EXPECT_EQ(data.SourcePicoseconds, 4);
  EXPECT_EQ(data.ServerPicoseconds, 5);
  EXPECT_STREQ(OpcUa_String_GetRawString(&data.Value.Value.String), "inner");
}

TEST(VariantCopy, OfAPointerTypeSharesThePointerAndReleasesNothing) {
  int thing = 0;
  OpcUa_VariantHlp value;
  value.Datatype = OpcUaType_NodeId;
  value.Value.Pointer = &thing;
  EXPECT_EQ(OpcUa_VariantHlp(value).Value.Pointer, &thing);
}

TEST(VariantCopy, OfStructuredTypesWithoutContentStaysEmpty) {
  for (const auto type : {OpcUaType_LocalizedText, OpcUaType_DataValue}) {
    OpcUa_VariantHlp value;
    value.Datatype = static_cast<OpcUa_Byte>(type);
    EXPECT_EQ(OpcUa_VariantHlp(value).Value.Pointer, nullptr);
  }
}

TEST(VariantText, AFailedAttachIsTracedAndLeavesANullString) {
  OpcUa_VariantHlp value;
  value.SetInt32(1);
  test_support::TakeLog();
  EXPECT_EQ(value.SetString(nullptr, 4), OpcUa_BadInvalidArgument);
  EXPECT_THAT(
      test_support::TakeLog(),
      testing::ElementsAre("warning <--ReturnError: OpcUa_String_AttachToString((char*)s, size, 0, "
                           "OpcUa_True, OpcUa_True, &(Value.String)) returns 0x80AB0000 "
                           "(include/share/opcua_variant_hlp:484)"));
  EXPECT_EQ(value.Datatype, OpcUaType_String);
  EXPECT_EQ(Text(value), "");
}

TEST(ElementaryTypes, MapToBuiltInTypes) {
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("BOOL"), OpcUaType_Boolean);
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("INT"), OpcUaType_Int16);
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("DINT"), OpcUaType_Int32);
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("LREAL"), OpcUaType_Double);
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("STRING"), OpcUaType_String);
  EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName("DATE_AND_TIME"), OpcUaType_DateTime);
  for (const char* unknown : {"", "bool", "DINT ", "STRUCT"}) {
    EXPECT_EQ(OpcUa_VariantHlp::GetUaTypeFromName(unknown), OpcUaType_Null) << unknown;
  }
}

}  // namespace
