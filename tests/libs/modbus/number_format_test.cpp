// SPDX-License-Identifier: MIT
#include "libs/modbus/number_format.h"

#include <gmock/gmock.h>

#include <random>

namespace {

using namespace modbus;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t kLimit = 123;

std::string AsText(const char* format, const char* order, std::vector<std::uint16_t> registers) {
  return NumbersAsText(registers, *FindNumberFormat(format), *FindNumberOrder(order));
}

FromText<std::uint16_t> FromTextOf(const char* format, const char* order, std::string_view text) {
  return NumbersFromText(text, *FindNumberFormat(format), *FindNumberOrder(order), kLimit);
}

TEST(NumberFormats, AreFoundByBothNamesInAnyCase) {
  EXPECT_STREQ(FindNumberFormat("")->name, "UINT");
  EXPECT_STREQ(FindNumberFormat("dint")->name, "DINT");
  EXPECT_STREQ(FindNumberFormat("Float32")->name, "REAL");
  for (const char* name : {"UINT8", "INT 16", " INT", "INT16x", "BOOL", "STRING"}) {
    EXPECT_EQ(FindNumberFormat(name), nullptr) << name;
  }
}

TEST(NumberFormats, OrdersAreFoundByTheirNames) {
  EXPECT_EQ(FindNumberOrder(""), NumberOrder{});
  EXPECT_EQ(FindNumberOrder("abcd"), NumberOrder{});
  EXPECT_EQ(FindNumberOrder("CDAB"), (NumberOrder{true, false}));
  EXPECT_EQ(FindNumberOrder("badc"), (NumberOrder{false, true}));
  EXPECT_EQ(FindNumberOrder("DCBA"), (NumberOrder{true, true}));
  EXPECT_EQ(FindNumberOrder("ABDC"), std::nullopt);
}

struct NumberRow {
  const char* format;
  const char* order;
  std::vector<std::uint16_t> registers;
  const char* text;
};

const NumberRow kRows[] = {
    {"UINT", "ABCD", {0, 1, 65535}, "0 1 65535"},
    {"INT", "ABCD", {0, 0x7FFF, 0x8000, 0xFFFF}, "0 32767 -32768 -1"},
    {"UINT", "BADC", {0x3412}, "4660"},
    {"UINT", "DCBA", {0x3412}, "4660"},
    {"UINT", "CDAB", {0x1234}, "4660"},
    {"UDINT", "ABCD", {0x1234, 0x5678}, "305419896"},
    {"UDINT", "CDAB", {0x5678, 0x1234}, "305419896"},
    {"UDINT", "BADC", {0x3412, 0x7856}, "305419896"},
    {"UDINT", "DCBA", {0x7856, 0x3412}, "305419896"},
    {"UDINT", "ABCD", {0xFFFF, 0xFFFF}, "4294967295"},
    {"DINT", "ABCD", {0xFFFF, 0xFFFF, 0x8000, 0}, "-1 -2147483648"},
    {"REAL", "ABCD", {0x41AC, 0, 0xBF80, 0}, "21.5 -1"},
    {"REAL", "CDAB", {0, 0x41AC}, "21.5"},
    {"REAL", "BADC", {0xAC41, 0}, "21.5"},
    {"REAL", "DCBA", {0, 0xAC41}, "21.5"},
    {"REAL", "ABCD", {0x3DCC, 0xCCCD}, "0.1"},
    {"REAL", "ABCD", {0x7F80, 0, 0xFF80, 0}, "inf -inf"},
    {"ULINT", "ABCD", {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}, "18446744073709551615"},
    {"LINT", "ABCD", {0x8000, 0, 0, 0}, "-9223372036854775808"},
    {"LINT", "CDAB", {4, 3, 2, 1}, "281483566841860"},
    {"LREAL", "ABCD", {0x4035, 0x8000, 0, 0}, "21.5"},
    {"LREAL", "DCBA", {0, 0, 0x0080, 0x3540}, "21.5"},
};

TEST(NumberFormats, RegistersBecomeTextsAndTextsTheSameRegisters) {
  for (const NumberRow& row : kRows) {
    SCOPED_TRACE(std::string(row.format) + " " + row.order + " " + row.text);
    EXPECT_EQ(AsText(row.format, row.order, row.registers), row.text);
    const auto back = FromTextOf(row.format, row.order, row.text);
    EXPECT_EQ(back.problem, "");
    EXPECT_EQ(back.values, row.registers);
  }
}

TEST(NumberFormats, AnyRegistersSurviveTheTextExceptTheBitsOfNan) {
  std::mt19937 random(1);
  for (const char* format : {"UINT", "INT", "UDINT", "DINT", "REAL", "ULINT", "LINT", "LREAL"}) {
    for (const char* order : {"ABCD", "CDAB", "BADC", "DCBA"}) {
      for (int round = 0; round < 200; ++round) {
        std::vector<std::uint16_t> registers(FindNumberFormat(format)->registers);
        for (auto& word : registers) word = static_cast<std::uint16_t>(random());
        const std::string text = AsText(format, order, registers);
        if (text.ends_with("nan")) continue;
        EXPECT_EQ(FromTextOf(format, order, text).values, registers) << format << text;
      }
    }
  }
}

TEST(NumberFormats, NotANumberIsNan) {
  EXPECT_EQ(AsText("REAL", "ABCD", {0x7FC0, 0}), "nan");
  const auto registers = FromTextOf("REAL", "ABCD", "nan").values;
  ASSERT_EQ(registers.size(), 2U);
  EXPECT_EQ(registers[0] & 0x7FC0, 0x7FC0);
}

TEST(NumberFormats, NumbersAreWrittenInSeveralWays) {
  EXPECT_THAT(FromTextOf("UINT", "", " 1;2\n+3\t 0x1F 0XfF 4e2 5.0; ").values,
              ElementsAre(1, 2, 3, 31, 255, 400, 5));
  EXPECT_THAT(FromTextOf("INT", "", "-1 0xFFFF -2.0").values, ElementsAre(0xFFFF, 0xFFFF, 0xFFFE));
  EXPECT_THAT(FromTextOf("REAL", "", "0.215e2").values, ElementsAre(0x41AC, 0));
}

TEST(NumberFormats, WhatIsNotANumberOfTheFormatIsAProblem) {
  const std::pair<const char*, const char*> cases[] = {
      {"UINT", "-1"},
      {"UINT", "65536"},
      {"UINT", "1.5"},
      {"UINT", "0x10000"},
      {"UINT", "0x"},
      {"UINT", "1x"},
      {"UINT", "nan"},
      {"UINT", "++1"},
      {"UINT", "--1"},
      {"UINT", "1e300"},
      {"UINT", "true"},
      {"INT", "32768"},
      {"INT", "-32769"},
      {"UDINT", "4294967296"},
      {"DINT", "2147483648"},
      {"REAL", "1e39"},
      {"REAL", "-1e39"},
      {"REAL", "0x10"},
      {"REAL", "1.5.2"},
      {"LREAL", "1e400"},
      {"ULINT", "18446744073709551616"},
      {"LINT", "9223372036854775808"},
      {"LINT", "-9223372036854775809"},
  };
  for (const auto& [format, text] : cases) {
    const auto result = FromTextOf(format, "", std::string("0 ") + text);
    EXPECT_THAT(result.problem, HasSubstr("is not a number that fits into")) << format << text;
    EXPECT_THAT(result.problem, HasSubstr(format)) << text;
  }
  EXPECT_THAT(FromTextOf("REAL", "", "21,5").problem, HasSubstr("write fractions with a point"));
  EXPECT_THAT(FromTextOf("UINT", "", " ; ").problem, HasSubstr("there is no number"));
  EXPECT_THAT(FromTextOf("UINT", "", "\x1b[2J").problem, HasSubstr(R"('\x1B[2J')"));
}

TEST(NumberFormats, MoreNumbersThanFitAreAProblem) {
  std::string text;
  for (std::size_t i = 0; i < kLimit; ++i) text += "7 ";
  EXPECT_THAT(FromTextOf("UINT", "", text).problem, IsEmpty());
  EXPECT_THAT(FromTextOf("UINT", "", text + "7").problem, HasSubstr("which is 123 registers"));
  EXPECT_THAT(FromTextOf("UDINT", "", text).problem, HasSubstr("123 registers"));
  EXPECT_THAT(BitsFromText("1 1 1", 2).problem, HasSubstr("2 coils"));
}

TEST(NumberFormats, BitsAreZeroAndOneOrTrueAndFalse) {
  EXPECT_EQ(BitsAsText(std::vector<std::uint8_t>{1, 0, 1}), "1 0 1");
  EXPECT_EQ(BitsAsText({}), "");
  EXPECT_THAT(BitsFromText("1 0;true FALSE", 8).values, ElementsAre(1, 0, 1, 0));
  for (const char* text : {"2", "-1", "on", "1,0", "10"}) {
    EXPECT_THAT(BitsFromText(text, 8).problem, HasSubstr("is not a coil's state")) << text;
  }
}

}  // namespace
