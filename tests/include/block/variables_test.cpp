// SPDX-License-Identifier: MIT
#include "block/variables.h"

#include <gtest/gtest.h>

namespace {

TEST(BlockVariables, AreAddedAsNullAndFoundAgain) {
  BlockVariables variables;
  FBInput& made = variables.Find("Made");
  EXPECT_EQ(made.value.Datatype, OpcUaType_Null);
  EXPECT_EQ(&variables.Find("Made"), &made);
  EXPECT_NE(&variables.Find("made"), &made);
}

TEST(BlockVariables, AreSettledOnlyOnRequest) {
  BlockVariables variables;
  variables.Find("Run");
  EXPECT_EQ(variables.FindSettled("Run"), nullptr);
  FBInput& run = variables.Settle("Run");
  EXPECT_EQ(variables.FindSettled("Run"), &run);
  EXPECT_EQ(&variables.Find("Run"), &run);
}

TEST(BlockVariables, WithTheSameSlotAreAllFound) {
  BlockVariables variables;
  // One length, one first and one last letter: one slot.
  FBInput& first = variables.Settle("A1Z");
  FBInput& second = variables.Settle("A2Z");
  EXPECT_NE(&first, &second);
  EXPECT_EQ(variables.FindSettled("A1Z"), &first);
  EXPECT_EQ(variables.FindSettled("A2Z"), nullptr);
  EXPECT_EQ(&variables.Find("A2Z"), &second);
}

TEST(BlockVariables, MayHaveNamesOfAnyBytes) {
  BlockVariables variables;
  FBInput& empty = variables.Settle("");
  FBInput& nul = variables.Settle(std::string_view("a\0b", 3));
  EXPECT_EQ(variables.FindSettled(""), &empty);
  EXPECT_EQ(variables.FindSettled(std::string_view("a\0b", 3)), &nul);
  EXPECT_EQ(variables.FindSettled(std::string_view("a\0c", 3)), nullptr);
  EXPECT_NE(&variables.Find("\xFF\x80"), &empty);
}

TEST(BlockVariables, StayWhereTheyAreWhenOthersAreAdded) {
  BlockVariables variables;
  FBInput& first = variables.Settle("first");
  for (int i = 0; i < 1000; ++i) variables.Settle("other" + std::to_string(i));
  EXPECT_EQ(&variables.Find("first"), &first);
  EXPECT_EQ(variables.FindSettled("first"), &first);
}

}  // namespace
