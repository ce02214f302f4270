// SPDX-License-Identifier: MIT
#include "block/error_ids.h"

#include <gmock/gmock.h>

#include <cctype>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

TEST(ErrorIds, TheCatalogueHasEveryNumberOnceInOrder) {
  std::vector<int> numbers;
  for (const ErrorIdEntry& entry : kErrorIds) numbers.push_back(static_cast<int>(entry.id));
  EXPECT_THAT(numbers, testing::ElementsAre(10, 11, 12, 13, 14, 15, 20, 21, 22, 23, 24, 25, 30, 31,
                                            32, 33, 34, 40, 41, 42, 43, 50, 51, 52));
}

TEST(ErrorIds, EveryEntryHasANameAndWholeSentencesInOneLine) {
  for (const ErrorIdEntry& entry : kErrorIds) {
    const std::string_view meaning = entry.meaning;
    const std::string_view remedy = entry.remedy;
    EXPECT_FALSE(std::string_view(entry.name).empty());
    EXPECT_TRUE(meaning.ends_with('.')) << meaning;
    EXPECT_TRUE(remedy.ends_with('.')) << remedy;
    EXPECT_EQ(meaning.find_first_of("\n|"), std::string_view::npos) << meaning;
    EXPECT_EQ(remedy.find_first_of("\n|"), std::string_view::npos) << remedy;
  }
}

TEST(ErrorIds, ThePageShowsTheCatalogue) {
  std::string expected;
  for (const ErrorIdEntry& entry : kErrorIds) {
    expected += "| " + std::to_string(static_cast<int>(entry.id)) + " | " + entry.name + " | " +
                entry.meaning + " | " + entry.remedy + " |\n";
  }
  std::ifstream page(PROJECT_FOLDER "/docs/errors.md");
  std::string shown;
  for (std::string line; std::getline(page, line);) {
    const bool is_row = line.size() > 2 && line.starts_with("| ") &&
                        std::isdigit(static_cast<unsigned char>(line[2])) != 0;
    if (is_row) shown += line + "\n";
  }
  EXPECT_EQ(shown, expected) << "docs/errors.md";
}

TEST(ErrorIds, AnEntryIsFoundByItsNumber) {
  EXPECT_STREQ(FindErrorId(ErrorId::kExpired)->name, "expired");
  EXPECT_EQ(FindErrorId(ErrorId::kNone), nullptr);
  EXPECT_EQ(FindErrorId(static_cast<ErrorId>(1000)), nullptr);
}

}  // namespace
