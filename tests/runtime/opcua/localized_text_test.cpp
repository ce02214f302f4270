// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opcua/opcua.h"

namespace {

TEST(LocalizedText, CopyIsDeepAndReplacesTheTarget) {
  OpcUa_LocalizedText source;
  OpcUa_LocalizedText target;
  OpcUa_LocalizedText_Initialize(&source);
  OpcUa_LocalizedText_Initialize(&target);
  OpcUa_String_AttachToString("en", 2, 0, OpcUa_True, OpcUa_True, &source.Locale);
  OpcUa_String_AttachToString("level", 5, 0, OpcUa_True, OpcUa_True, &source.Text);
  OpcUa_String_AttachToString("old", 3, 0, OpcUa_True, OpcUa_True, &target.Text);
  EXPECT_EQ(OpcUa_LocalizedText_CopyTo(&source, &target), OpcUa_Good);
  OpcUa_LocalizedText_Clear(&source);
  EXPECT_STREQ(OpcUa_String_GetRawString(&target.Locale), "en");
  EXPECT_STREQ(OpcUa_String_GetRawString(&target.Text), "level");
  OpcUa_LocalizedText_Clear(&target);
  EXPECT_EQ(OpcUa_String_GetRawString(&target.Text), nullptr);
}

TEST(LocalizedText, RefusesNullPointers) {
  OpcUa_LocalizedText text;
  OpcUa_LocalizedText_Initialize(&text);
  EXPECT_TRUE(OpcUa_IsBad(OpcUa_LocalizedText_CopyTo(nullptr, &text)));
  EXPECT_TRUE(OpcUa_IsBad(OpcUa_LocalizedText_CopyTo(&text, nullptr)));
  OpcUa_LocalizedText_Initialize(nullptr);
  OpcUa_LocalizedText_Clear(nullptr);
}

}  // namespace
