// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/cli/screen_text.h"

namespace {

using corvane::cli::Cells;
using corvane::cli::Key;
using corvane::cli::ScreenLine;
using corvane::cli::WatchPage;
using corvane::cli::WatchPicture;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class WatchPageTest : public testing::Test {
 protected:
  WatchPageTest() {
    picture_.statistics = "8 cycles; cycle time; started late";
    picture_.output = {"one", "two", "three", "four"};
    for (int i = 1; i <= 20; ++i) {
      picture_.blocks.push_back({i, "block" + std::to_string(i), "SEND_SMS", {{"Port", "1"}}});
    }
  }

  std::vector<std::string> Rows(int rows, int columns = 80) {
    std::vector<std::string> texts;
    for (const ScreenLine& line :
         page_.Lines(std::make_shared<const WatchPicture>(picture_), {rows, columns})) {
      texts.push_back(line.text);
    }
    return texts;
  }

  /// The rows of a screen with room for 8 of the 40 lines of blocks, two lines for each block.
  std::vector<std::string> SmallRows() { return Rows(kRows); }

  void Press(Key key) { static_cast<void>(page_.Press({key, ""})); }
  void Type(const std::string& text) {
    for (const char c : text) static_cast<void>(page_.Press({Key::kText, std::string(1, c)}));
  }

  static constexpr int kRows = 18;
  WatchPage page_{{.program = "pumps.lua"}};
  WatchPicture picture_;
};

TEST_F(WatchPageTest, ShowsEveryPartIfThereIsRoom) {
  const auto rows = Rows(24);
  ASSERT_EQ(rows.size(), 24u);
  EXPECT_THAT(rows[0], testing::StartsWith(" corvane  pumps.lua "));
  EXPECT_THAT(rows[1], testing::StartsWith(" 8 cycles "));
  EXPECT_THAT(rows[3], testing::StartsWith(" started late "));
  EXPECT_THAT(rows[4], testing::StartsWith("block1: SEND_SMS"));
  EXPECT_THAT(rows[18], testing::StartsWith(" Output"));
  EXPECT_THAT(rows[22], testing::StartsWith(" four"));
  EXPECT_THAT(rows[23], testing::StartsWith(" q: end  ?: keys  lines 1 to 14 of 40 "));
}

TEST_F(WatchPageTest, ABlockIsVisibleOnASmallScreen) {
  for (const auto& [rows, columns] : {std::pair{10, 40}, {5, 20}, {4, 20}, {60, 200}}) {
    const auto texts = Rows(rows, columns);
    ASSERT_EQ(texts.size(), static_cast<std::size_t>(rows));
    EXPECT_THAT(texts, Contains(HasSubstr("block1: SEND_SMS"))) << rows;
    EXPECT_THAT(texts.back(), HasSubstr(" q: end"));
  }
  EXPECT_THAT(Rows(10, 40), AllOf(Contains(HasSubstr("8 cycles")), Contains(HasSubstr("four")),
                                  Contains(HasSubstr("lines 1 to 4 of 40"))));
}

TEST_F(WatchPageTest, ManyModemPortsLeaveRoomForBlocks) {
  for (int i = 0; i < 30; ++i) picture_.modems.push_back("modem " + std::to_string(i));
  const auto rows = Rows(24);
  EXPECT_THAT(rows, AllOf(Contains(HasSubstr("block1:")), Contains(HasSubstr("modem 0")),
                          Contains(HasSubstr("... and 25 more lines"))));
}

TEST_F(WatchPageTest, FitsEverySize) {
  picture_.blocks[0].name = "水位水位水位水位水位水位水位水位";
  picture_.modems = {"modem 1: \x1b[2J"};
  for (int rows = 1; rows < 30; ++rows) {
    for (int columns = 1; columns < 90; columns += 8) {
      for (const Key key : {Key::kEnd, Key::kPageUp}) {
        Press(key);
        const auto texts = Rows(rows, columns);
        ASSERT_EQ(texts.size(), static_cast<std::size_t>(rows));
        for (const auto& text : texts) ASSERT_LE(Cells(text), static_cast<std::size_t>(columns));
      }
    }
  }
}

TEST_F(WatchPageTest, MovesByLinesPagesAndToTheEnds) {
  ASSERT_THAT(SmallRows().back(), HasSubstr("lines 1 to 8 of 40"));
  Press(Key::kDown);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 2 to 9 of 40"));
  Press(Key::kPageDown);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 10 to 17 of 40"));
  Press(Key::kUp);
  Press(Key::kPageUp);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 1 to 8 of 40"));
  Press(Key::kEnd);
  Press(Key::kPageDown);
  Press(Key::kDown);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 33 to 40 of 40"));
  Press(Key::kUp);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 32 to 39 of 40"))
      << "a key that went past the end does not count";
  Press(Key::kHome);
  Press(Key::kUp);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 1 to 8 of 40"));
}

TEST_F(WatchPageTest, StaysInRangeWhenBlocksDisappear) {
  Press(Key::kEnd);
  static_cast<void>(SmallRows());
  Press(Key::kEnd);
  picture_.blocks.resize(5);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 3 to 10 of 10"));
  picture_.blocks.clear();
  EXPECT_THAT(SmallRows().back(), Not(HasSubstr("lines")));
}

TEST_F(WatchPageTest, FiltersWhileTheTextIsTypedAndKeepsItAfterEnter) {
  Type("/k1");
  EXPECT_THAT(SmallRows().back(), HasSubstr(" /k1_  Enter: keep"));
  EXPECT_THAT(SmallRows(), Not(Contains(HasSubstr("block2:"))));
  Type("pq?");  // are text now
  EXPECT_THAT(SmallRows(), Contains(HasSubstr("no name contains this text")));
  for (int i = 0; i < 3; ++i) Press(Key::kBackspace);
  EXPECT_THAT(SmallRows(), Contains(HasSubstr("block10:")));
  Press(Key::kEnter);
  EXPECT_THAT(SmallRows().back(), HasSubstr(" q: end  ?: keys  /k1  lines 1 to 8 of 22"));
  Press(Key::kEscape);
  EXPECT_THAT(SmallRows().back(), HasSubstr(" of 40"));
}

TEST_F(WatchPageTest, EscWhileTypingShowsAllAgain) {
  Type("/k1");
  Press(Key::kEscape);
  EXPECT_THAT(SmallRows().back(), HasSubstr(" of 40"));
  EXPECT_EQ(page_.Press({Key::kText, "q"}), WatchPage::Wish::kEnd);
}

TEST_F(WatchPageTest, AFilterIsEditedByCharactersAndIsBounded) {
  Type("/");
  static_cast<void>(page_.Press({Key::kText, "水"}));
  Press(Key::kBackspace);
  Press(Key::kBackspace);
  EXPECT_THAT(SmallRows().back(), HasSubstr(" /_  Enter"));
  for (int i = 0; i < 10000; ++i) Type("x");
  EXPECT_LE(SmallRows().back().size(), 80u);
}

TEST_F(WatchPageTest, PausesTheDisplayButNotTheKeys) {
  Type("p");
  ASSERT_THAT(SmallRows()[0], HasSubstr("paused  pumps.lua"));
  picture_.statistics = "9 cycles";
  picture_.output = {"five"};
  EXPECT_THAT(SmallRows(), AllOf(Contains(HasSubstr("8 cycles")), Contains(HasSubstr("four"))));
  Press(Key::kDown);
  EXPECT_THAT(SmallRows().back(), HasSubstr("lines 2 to 9"));
  Type("p");
  EXPECT_THAT(SmallRows(), AllOf(Contains(HasSubstr("9 cycles")), Contains(HasSubstr("five"))));
  EXPECT_THAT(SmallRows()[0], Not(HasSubstr("paused")));
}

TEST_F(WatchPageTest, ListsItsKeysAndGoesBack) {
  Type("?");
  const auto rows = Rows(24, 40);
  EXPECT_THAT(rows,
              AllOf(Contains(HasSubstr("PgUp, PgDn")), Contains(HasSubstr("Home, End")),
                    Contains(HasSubstr("Esc ")), Contains(HasSubstr(" *           changed"))));
  EXPECT_THAT(rows, testing::Each(Not(HasSubstr("..."))));
  EXPECT_THAT(rows, Not(Contains(HasSubstr("block1:"))));
  EXPECT_THAT(Rows(6, 40).back(), HasSubstr("?: back  lines 1 to 4 of 11"));
  Press(Key::kEnd);
  EXPECT_THAT(Rows(6, 40), Contains(HasSubstr(" *           changed")));
  Press(Key::kEscape);
  EXPECT_THAT(Rows(24, 40), Contains(HasSubstr("block1:")));
  Type("??");
  EXPECT_THAT(Rows(24, 40), Contains(HasSubstr("block1:")));
}

TEST_F(WatchPageTest, EscClosesTheKeysAndLeavesTheFilter) {
  Type("/k1");
  Press(Key::kEnter);
  Type("?");
  Press(Key::kEscape);
  EXPECT_THAT(SmallRows().back(), HasSubstr("/k1"));
}

TEST_F(WatchPageTest, QEndsAndCtrlLDrawsAgain) {
  EXPECT_EQ(page_.Press({Key::kText, "q"}), WatchPage::Wish::kEnd);
  EXPECT_EQ(page_.Press({Key::kRedraw, ""}), WatchPage::Wish::kRedraw);
  EXPECT_EQ(page_.Press({Key::kText, "x"}), WatchPage::Wish::kNothing);
}

}  // namespace
