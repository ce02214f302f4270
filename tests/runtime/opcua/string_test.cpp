// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "opcua/opcua.h"

namespace {

class OpcUaString : public testing::Test {
 protected:
  OpcUaString() { OpcUa_String_Initialize(&string_); }
  ~OpcUaString() override { OpcUa_String_Clear(&string_); }

  std::string Text() const {
    return {OpcUa_String_GetRawString(&string_), OpcUa_String_StrLen(&string_)};
  }

  OpcUa_String string_;
};

TEST_F(OpcUaString, IsNullAfterInitialize) {
  EXPECT_EQ(OpcUa_String_GetRawString(&string_), nullptr);
  EXPECT_EQ(OpcUa_String_StrLen(&string_), 0u);
}

TEST_F(OpcUaString, CopyIsIndependentOfItsSource) {
  std::string source = "alarm";
  ASSERT_EQ(OpcUa_String_AttachToString(source.data(), 5, 0, OpcUa_True, OpcUa_True, &string_),
            OpcUa_Good);
  source[0] = 'X';
  EXPECT_EQ(Text(), "alarm");
  EXPECT_EQ(OpcUa_String_GetRawString(&string_)[5], '\0');
}

TEST_F(OpcUaString, CopyKeepsNulCharacters) {
  const std::string source("a\0b", 3);
  ASSERT_EQ(OpcUa_String_AttachToString(source.data(), 3, 0, OpcUa_True, OpcUa_True, &string_),
            OpcUa_Good);
  EXPECT_EQ(Text(), source);
}

TEST_F(OpcUaString, LengthZeroIsAnEmptyStringAndNotANullString) {
  ASSERT_EQ(OpcUa_String_AttachToString("ignored", 0, 0, OpcUa_True, OpcUa_True, &string_),
            OpcUa_Good);
  EXPECT_NE(OpcUa_String_GetRawString(&string_), nullptr);
  EXPECT_EQ(Text(), "");
}

TEST_F(OpcUaString, AnUnspecifiedLengthMeansUpToTheNul) {
  ASSERT_EQ(OpcUa_String_AttachToString("to the end", OPCUA_STRING_LENDONTCARE, 0, OpcUa_True,
                                        OpcUa_True, &string_),
            OpcUa_Good);
  EXPECT_EQ(Text(), "to the end");
}

TEST_F(OpcUaString, WithoutCopyBorrowsTheBytes) {
  const char source[] = "static";
  ASSERT_EQ(OpcUa_String_AttachToString(source, 6, 0, OpcUa_False, OpcUa_False, &string_),
            OpcUa_Good);
  EXPECT_EQ(OpcUa_String_GetRawString(&string_), source);
}

TEST_F(OpcUaString, RefusesNullPointers) {
  EXPECT_TRUE(
      OpcUa_IsBad(OpcUa_String_AttachToString(nullptr, 1, 0, OpcUa_True, OpcUa_True, &string_)));
  EXPECT_TRUE(OpcUa_IsBad(OpcUa_String_AttachToString("x", 1, 0, OpcUa_True, OpcUa_True, nullptr)));
  EXPECT_TRUE(OpcUa_IsBad(OpcUa_String_StrnCpy(&string_, nullptr, 1)));
}

TEST_F(OpcUaString, StrnCpyCopiesAtMostTheGivenLength) {
  OpcUa_String source;
  OpcUa_String_Initialize(&source);
  OpcUa_String_AttachToString("pump station", 12, 0, OpcUa_False, OpcUa_False, &source);
  ASSERT_EQ(OpcUa_String_StrnCpy(&string_, &source, 4), OpcUa_Good);
  EXPECT_EQ(Text(), "pump");
  ASSERT_EQ(OpcUa_String_StrnCpy(&string_, &source, OPCUA_STRING_LENDONTCARE), OpcUa_Good);
  EXPECT_EQ(Text(), "pump station");
}

TEST_F(OpcUaString, StrnCpyOfANullStringIsNull) {
  OpcUa_String_AttachToString("old", 3, 0, OpcUa_True, OpcUa_True, &string_);
  OpcUa_String source;
  OpcUa_String_Initialize(&source);
  ASSERT_EQ(OpcUa_String_StrnCpy(&string_, &source, OPCUA_STRING_LENDONTCARE), OpcUa_Good);
  EXPECT_EQ(OpcUa_String_GetRawString(&string_), nullptr);
}

TEST_F(OpcUaString, StrnCpyOntoItselfKeepsTheText) {
  OpcUa_String_AttachToString("same", 4, 0, OpcUa_True, OpcUa_True, &string_);
  ASSERT_EQ(OpcUa_String_StrnCpy(&string_, &string_, OPCUA_STRING_LENDONTCARE), OpcUa_Good);
  EXPECT_EQ(Text(), "same");
}

}  // namespace
