// SPDX-License-Identifier: MIT
#include "runtime/bench/server/variable_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace corvane::bench {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(VariableJsonTest, EachValueHasItsForm) {
  EXPECT_EQ(JsonOfValue({}).dump(), "null");
  EXPECT_EQ(JsonOfValue(true).dump(), "true");
  EXPECT_EQ(JsonOfValue(0.5).dump(), "0.5");
  EXPECT_EQ(JsonOfValue(std::int64_t{1} << 60).dump(), "1152921504606846976");
  EXPECT_EQ(JsonOfValue(std::string("Насос")).dump(), "\"Насос\"");
  EXPECT_EQ(JsonOfValue(std::nan("")).dump(), R"({"special":"nan"})");
  EXPECT_EQ(JsonOfValue(-kInfinity).dump(), R"({"special":"-inf"})");
  EXPECT_EQ(JsonOfValue(LongText{"abc", 40000, 1}).dump(), R"({"text":"abc","length":40000})");
}

TEST(VariableJsonTest, OctetsThatAreNotTextDoNotEndTheMessage) {
  VariableChanges changes;
  changes.values = {{1, std::string("\xff\0x", 3)}};
  const std::string text = JsonOfChanges(changes, 1);
  EXPECT_EQ(text, R"({"type":"variables","time":1.0,"add":[],"remove":[],"set":[[1,")"
                  "\xef\xbf\xbd"
                  R"(\u0000x"]]})");
}

TEST(VariableJsonTest, AWrittenValueHasItsType) {
  const auto read = [](const char* text) { return ValueOfJson(nlohmann::json::parse(text)); };
  EXPECT_EQ(read("true"), Value(true));
  EXPECT_EQ(read("5"), Value(std::int64_t{5}));
  EXPECT_EQ(read("-5"), Value(std::int64_t{-5}));
  EXPECT_EQ(read("5.0"), Value(5.0));
  EXPECT_EQ(read("18446744073709551615"), Value(18446744073709551615.0));
  EXPECT_EQ(read("\"x\""), Value(std::string("x")));
  EXPECT_EQ(read(R"({"special":"inf"})"), Value(kInfinity));
  EXPECT_EQ(read("null"), std::nullopt);
}

}  // namespace
}  // namespace corvane::bench
