// SPDX-License-Identifier: MIT
#include "runtime/corvaneshare/elementary_types.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

// OPC 30000, table of elementary data types; the numbers are those of OPC 10000-6, built-in types.
TEST(ElementaryTypes, EachHasItsBuiltInType) {
  const std::vector<std::pair<std::string, int>> expected{{"BOOL", 1},
                                                          {"SINT", 2},
                                                          {"USINT", 3},
                                                          {"INT", 4},
                                                          {"UINT", 5},
                                                          {"DINT", 6},
                                                          {"UDINT", 7},
                                                          {"LINT", 8},
                                                          {"ULINT", 9},
                                                          {"REAL", 10},
                                                          {"LREAL", 11},
                                                          {"STRING", 12},
                                                          {"DATE_AND_TIME", 13},
                                                          {"BYTE", 3},
                                                          {"WORD", 5},
                                                          {"DWORD", 7},
                                                          {"LWORD", 9},
                                                          {"CHAR", 3},
                                                          {"WCHAR", 5},
                                                          {"WSTRING", 12},
                                                          {"TIME", 11},
                                                          {"LTIME", 8},
                                                          {"DATE", 13},
                                                          {"LDATE", 13},
                                                          {"TIME_OF_DAY", 13},
                                                          {"TOD", 13},
                                                          {"LTOD", 13},
                                                          {"DT", 13},
                                                          {"LDT", 13}};
  std::vector<std::pair<std::string, int>> actual;
  for (const auto& type : corvane::kElementaryTypes) {
    actual.emplace_back(type.name, static_cast<int>(type.built_in));
  }
  EXPECT_EQ(actual, expected);
}

}  // namespace
