// SPDX-License-Identifier: MIT
#include "runtime/cli/change_marks.h"

#include <gtest/gtest.h>

namespace {

using corvane::BlockState;
using corvane::cli::ChangeMarks;
using std::chrono::seconds;

constexpr ChangeMarks::TimePoint kStart{std::chrono::hours(1)};

class ChangeMarksTest : public testing::Test {
 protected:
  /// Whether the only variable of block 1 is marked.
  bool Marked(const std::string& value, ChangeMarks::TimePoint now, int number = 1) {
    std::vector<BlockState> blocks{{number, "b", "T", {{"A", value}}}};
    marks_.Mark(blocks, now);
    return blocks[0].variables[0].changed;
  }

  ChangeMarks marks_;
};

TEST_F(ChangeMarksTest, AValueThatIsSeenForTheFirstTimeIsNotMarked) {
  EXPECT_FALSE(Marked("1", kStart));
}

TEST_F(ChangeMarksTest, AChangeIsMarkedForTwoSeconds) {
  static_cast<void>(Marked("1", kStart));
  EXPECT_FALSE(Marked("1", kStart + seconds(5)));
  EXPECT_TRUE(Marked("2", kStart + seconds(10)));
  EXPECT_TRUE(Marked("2", kStart + seconds(11)));
  EXPECT_FALSE(Marked("2", kStart + seconds(12)));
}

TEST_F(ChangeMarksTest, AnotherChangeBeginsAgain) {
  static_cast<void>(Marked("1", kStart));
  static_cast<void>(Marked("2", kStart + seconds(1)));
  EXPECT_TRUE(Marked("1", kStart + seconds(2)));
  EXPECT_TRUE(Marked("1", kStart + seconds(3)));
}

TEST_F(ChangeMarksTest, ANewBlockDoesNotInheritFromOneThatIsGone) {
  static_cast<void>(Marked("1", kStart, 1));
  EXPECT_FALSE(Marked("2", kStart, 2));
  EXPECT_FALSE(Marked("3", kStart, 1)) << "block 1 was gone meanwhile";
}

TEST_F(ChangeMarksTest, AVariableThatAppearsIsNotMarked) {
  std::vector<BlockState> blocks{{1, "b", "T", {{"A", "1"}}}};
  marks_.Mark(blocks, kStart);
  blocks = {{1, "b", "T", {{"A", "1"}, {"B", "2"}}}};
  marks_.Mark(blocks, kStart);
  EXPECT_FALSE(blocks[0].variables[1].changed);
  blocks = {{1, "b", "T", {}}};
  marks_.Mark(blocks, kStart);
}

}  // namespace
