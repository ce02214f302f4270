// SPDX-License-Identifier: MIT
#include "runtime/cli/remote_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::BlockState;
using corvane::cli::RemotePicture;
using nlohmann::json;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RemotePictureTest : public testing::Test {
 protected:
  void Take(const json& message) { picture_.Take(message, now_); }
  using Nodes = std::vector<json>;
  using Values = std::vector<std::pair<int, json>>;
  void TakeVariables(const Nodes& add, const Values& set, const std::vector<int>& remove = {}) {
    Take({{"type", "variables"}, {"add", add}, {"set", set}, {"remove", remove}});
  }
  static json Node(int id, int parent, const char* name, const char* kind = "value",
                   const char* type = "number") {
    return {{"id", id}, {"parent", parent}, {"name", name}, {"kind", kind}, {"type", type}};
  }
  /// "NAME: TYPE", then "VARIABLE=VALUE" with an asterisk if it has changed lately.
  std::vector<std::string> Blocks() {
    std::vector<std::string> lines;
    const auto picture = picture_.Get(now_);
    for (const BlockState& block : picture->blocks) {
      lines.push_back(block.name + ": " + block.type);
      for (const auto& variable : block.variables) {
        lines.push_back(variable.name + "=" + variable.value + (variable.changed ? "*" : ""));
      }
    }
    return lines;
  }
  std::string Shown(const json& value, const char* type = "number") {
    picture_.Clear();
    TakeVariables({Node(1, 0, "x", "value", type)}, {{1, value}});
    return Blocks().at(1).substr(2);
  }

  RemotePicture picture_{"pump"};
  RemotePicture::TimePoint now_{seconds(1000)};
};

TEST_F(RemotePictureTest, VariablesAreShownWithTheBlockOrTableTheyAreIn) {
  TakeVariables({Node(1, 0, "level"), Node(2, 0, "pumps", "table", "table"),
                 Node(3, 2, "[1]", "table", "table"), Node(4, 3, "motor", "block", "TON"),
                 Node(5, 4, "Q", "value", "BOOL"), Node(6, 3, "name")},
                {{1, 7}, {5, true}, {6, "north"}});
  EXPECT_THAT(Blocks(), ElementsAre("pump: variables", "level=7", "pumps[1]: table", "name='north'",
                                    "pumps[1].motor: TON", "Q=TRUE"));
  TakeVariables({}, {}, {1, 4, 5});
  EXPECT_THAT(Blocks(), ElementsAre("pumps[1]: table", "name='north'"));
}

TEST_F(RemotePictureTest, ValuesReadAsInTheViewOfTheProgramItself) {
  EXPECT_EQ(Shown(false), "FALSE");
  EXPECT_EQ(Shown(0.1), "0.1");
  EXPECT_EQ(Shown(1152921504606846976), "1152921504606846976");
  EXPECT_EQ(Shown(nullptr), "-");
  EXPECT_EQ(Shown({{"special", "-inf"}}), "-inf");
  EXPECT_EQ(Shown({{"text", "long"}, {"length", 40000}}), "'long'");
  EXPECT_EQ(Shown(1763694000, "DATE_AND_TIME"), "2025-11-21 03:00:00 UTC");
  EXPECT_EQ(Shown(json::array()), "-");
}

TEST_F(RemotePictureTest, ASecretIsShownAsDots) {
  json secret = Node(1, 0, "Password");
  secret["secret"] = true;
  TakeVariables({secret}, {{1, "s3cret"}});
  EXPECT_THAT(Blocks(), ElementsAre("pump: variables", "Password=......"));
}

TEST_F(RemotePictureTest, AChangeIsMarkedForTwoSecondsAndAFirstValueIsNone) {
  TakeVariables({Node(1, 0, "x")}, {{1, 1}});
  EXPECT_THAT(Blocks(), ElementsAre("pump: variables", "x=1"));
  TakeVariables({}, {{1, 2}});
  now_ += std::chrono::milliseconds(1999);
  EXPECT_THAT(Blocks(), ElementsAre("pump: variables", "x=2*"));
  now_ += std::chrono::milliseconds(2);
  EXPECT_THAT(Blocks(), ElementsAre("pump: variables", "x=2"));
}

TEST_F(RemotePictureTest, CyclesAreSummedUpInThreeLines) {
  Take({{"type", "cycle"},
        {"count", 200},
        {"overruns", 3},
        {"longest", 0.004},
        {"last", {{100.0, 0.001, 0.002, 0.005, 0}, {800.0, 0.003, 0.004, 0.0005, 0}}},
        {"histogram", {{0.001, 190}, {0.0025, 9}, {0.005, 1}, {nullptr, 0}}}});
  EXPECT_EQ(picture_.Get(now_)->statistics,
            "200 cycles, 3 overruns; cycle time now 3ms p99 2.5ms max 4ms; started late at most "
            "500us in 10 min");
}

TEST_F(RemotePictureTest, ModemsAndTheLastLinesOfTheLogAreShown) {
  Take({{"type", "modem"},
        {"port", "1"},
        {"status", "ready"},
        {"operator", "Tele"},
        {"signal", -71}});
  Take({{"type", "modem"},
        {"port", "2"},
        {"status", "closed"},
        {"operator", ""},
        {"signal", nullptr}});
  for (int i = 1; i <= 6; ++i) {
    const std::string text = "line " + std::to_string(i) + "\x1b[2J\n";
    Take({{"type", "log"}, {"lines", {{{"level", "info"}, {"text", text}}}}});
  }
  const auto picture = picture_.Get(now_);
  EXPECT_THAT(picture->modems, ElementsAre("modem 1: ready, Tele, -71 dBm", "modem 2: closed"));
  EXPECT_THAT(picture->output, ElementsAre("info    line 3?", "info    line 4?", "info    line 5?",
                                           "info    line 6?"));
}

TEST_F(RemotePictureTest, WhatIsNotTheProtocolIsRefusedAndUnknownTypesAreIgnored) {
  Take({{"type", "weather"}, {"sun", 1}});
  EXPECT_THROW(Take({{"type", "variables"}}), json::exception);
  EXPECT_THROW(Take({{"type", "cycle"}, {"last", 7}}), json::exception);
  EXPECT_THROW(TakeVariables({json{{"id", "x"}}}, {}), json::exception);
  EXPECT_THROW(Take({{"type", "log"}, {"lines", {1}}}), json::exception);
}

TEST_F(RemotePictureTest, WhatMustBeAWholeNumberIsRefusedIfItIsNotOne) {
  const auto variables = [](const json& remove, const json& id) {
    return json{{"type", "variables"},
                {"remove", remove},
                {"add", json::array()},
                {"set", json::array({json::array({id, 1})})}};
  };
  EXPECT_NO_THROW(Take(variables(json::array(), 1)));
  EXPECT_THROW(Take(variables(json::array({1e300}), 1)), json::exception);
  EXPECT_THROW(Take(variables(json::array(), 1e300)), json::exception);
  json cycle{{"type", "cycle"},       {"count", 1},
             {"overruns", 0},         {"longest", 0.5},
             {"last", json::array()}, {"histogram", json::array()}};
  EXPECT_NO_THROW(Take(cycle));
  cycle["count"] = 1e300;
  EXPECT_THROW(Take(cycle), json::exception);
  cycle["count"] = 1;
  cycle["histogram"] = {{0.1, 1.8e19}};
  EXPECT_THROW(Take(cycle), json::exception);
  Take(
      {{"type", "modem"}, {"port", "1"}, {"status", "ready"}, {"operator", ""}, {"signal", 1e300}});
  EXPECT_THAT(picture_.Get(now_)->modems, ElementsAre("modem 1: ready"));
}

TEST_F(RemotePictureTest, TheNumberOfVariablesIsLimited) {
  Nodes nodes;
  const int count = static_cast<int>(RemotePicture::kMostNodes) + 5;
  for (int i = 1; i <= count; ++i) nodes.push_back(Node(i, 0, "x"));
  TakeVariables(nodes, {});
  EXPECT_EQ(picture_.Get(now_)->blocks.front().variables.size(), RemotePicture::kMostNodes);
  EXPECT_THAT(picture_.Get(now_)->statistics, HasSubstr("more variables than can be shown"));
  picture_.Clear();
  EXPECT_THAT(Blocks(), IsEmpty());
}

}  // namespace
