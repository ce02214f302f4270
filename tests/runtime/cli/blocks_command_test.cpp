// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/command.h"

namespace {

using test_support::RunCommand;

TEST(BlocksCommand, ListsTheTypesInTheOrderOfTheirRegistrationWithTheirVariables) {
  const auto result = RunCommand({CORVANE, "blocks"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              testing::StartsWith("SEND_SMS\n  Port          DINT\n  Send          BOOL\n"));
  EXPECT_THAT(result.out, testing::HasSubstr("\nSysProcessCreate\n  Command       STRING\n"
                                             "  Args          STRING\n  Run           BOOL\n"
                                             "SysProcessCreateWithResult\n"));
}

TEST(BlocksCommand, JsonHoldsTheSame) {
  const auto result = RunCommand({CORVANE, "blocks", "--json"});
  EXPECT_EQ(result.status, 0);
  const auto blocks = nlohmann::json::parse(result.out);
  ASSERT_GE(blocks.size(), 5u);  // more where blocks are added
  EXPECT_EQ(blocks[0]["name"], "SEND_SMS");
  EXPECT_EQ(blocks[1]["name"], "READ_SMS");
  EXPECT_EQ(blocks[2]["name"], "SEND_EMAIL");
  EXPECT_EQ(blocks[2]["variables"].size(), 16u);
  EXPECT_EQ(blocks[2]["variables"][15], (nlohmann::json{{"name", "ErrStr"}, {"type", "STRING"}}));
  EXPECT_EQ(blocks[1]["variables"][5]["type"], "DATE_AND_TIME");
}

TEST(BlocksCommand, ListsOneTypeOnly) {
  const auto result = RunCommand({CORVANE, "blocks", "SysProcessCreate"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "SysProcessCreate\n  Command       STRING\n  Args          STRING\n"
            "  Run           BOOL\n");
}

TEST(BlocksCommand, AnUnknownTypeIsAnErrorThatNamesTheKnownOnes) {
  const auto result = RunCommand({CORVANE, "blocks", "SEND_MSM", "--addin", COUNTDOWN_ADDIN});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "corvane: there is no block type SEND_MSM; there are COUNTDOWN\n");
}

TEST(BlocksCommand, ShowsInputsAndOutputsApartWithTheirMeaningsWhereTheBlockStatesThem) {
  const auto result = RunCommand({CORVANE, "blocks", "--addin", COUNTDOWN_ADDIN});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::StartsWith(
                              "COUNTDOWN\n Inputs\n  Execute       BOOL          a rising edge"));
  EXPECT_THAT(result.out,
              testing::HasSubstr("  Calls         DINT          calls that the job lasts, at least "
                                 "1\n Outputs\n  Busy          BOOL          "));
}

TEST(BlocksCommand, JsonHoldsDirectionsAndMeanings) {
  const auto result = RunCommand({CORVANE, "blocks", "--json", "--addin", COUNTDOWN_ADDIN});
  const auto variables = nlohmann::json::parse(result.out)[0]["variables"];
  ASSERT_EQ(variables.size(), 8u);
  EXPECT_EQ(variables[1], (nlohmann::json{{"name", "Calls"},
                                          {"type", "DINT"},
                                          {"direction", "input"},
                                          {"meaning", "calls that the job lasts, at least 1"}}));
  EXPECT_EQ(variables[7]["direction"], "output");
}

TEST(BlocksCommand, ATypeWithoutMetadataIsNamedAndTheOthersAreListed) {
  const auto result =
      RunCommand({CORVANE, "blocks", "--addin", SILENT_ADDIN, "--addin", ADDIN_FILE});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "corvane: block type SILENT has published no metadata\n");
  EXPECT_THAT(result.out, testing::StartsWith("SILENT\nSEND_SMS\n  Port"));
}

TEST(BlocksCommand, OutputThatCannotBeWrittenIsAFailure) {
  const auto result = RunCommand({"/bin/sh", "-c", "\"$0\" blocks >/dev/full", CORVANE});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "corvane: standard output could not be written in full\n");
}

TEST(BlocksCommand, AWrongAddinIsReportedInOneLine) {
  const auto result = RunCommand({CORVANE, "blocks", "--addin", "/no/such.so"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(
      result.err,
      "corvane: --addin: add-in /no/such.so does not exist; check the path (try corvane blocks "
      "--help)\n");
}

}  // namespace
