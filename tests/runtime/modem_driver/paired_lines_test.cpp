// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/paired_lines.h"

#include <gtest/gtest.h>

namespace {

using corvane::PairedLines;

const std::string kHeader = "+CDS: 25";
const std::string kReport = "0006D60B911326880736F4111011719551401110117195714000";

PairedLines After(const std::string& header) {
  PairedLines pair;
  pair.Begin(header);
  return pair;
}

TEST(PairedLines, TakesTheLineAfterItsHeaderWhateverItIs) {
  for (const std::string& line : {kReport, std::string("a text, in text mode"), std::string("0")}) {
    PairedLines pair = After(kHeader);
    EXPECT_TRUE(pair.Take(line));
    EXPECT_EQ(pair.pdu(), line);
    EXPECT_FALSE(pair.Take(kReport)) << "only one";
  }
  EXPECT_FALSE(PairedLines().Take(kReport));
}

TEST(PairedLines, JoinsAPduThatAnotherLineHasCutInTwo) {
  ASSERT_EQ(kReport.size(), 2 * (25 + 1));
  for (std::size_t cut = 1; cut < kReport.size(); ++cut) {
    PairedLines pair = After(kHeader);
    ASSERT_TRUE(pair.Take(kReport.substr(0, cut)));
    EXPECT_TRUE(pair.IsShort()) << cut;
    pair.Interrupt();
    EXPECT_TRUE(pair.Take(kReport.substr(cut))) << cut;
    EXPECT_FALSE(pair.IsShort()) << cut;
    EXPECT_EQ(pair.pdu(), kReport);
  }
}

TEST(PairedLines, LeavesOtherPdusToTheirOwners) {
  PairedLines pair = After(kHeader);
  ASSERT_TRUE(pair.Take(kReport.substr(0, 20)));
  EXPECT_FALSE(pair.Take(kReport.substr(20))) << "nothing has cut it";
  pair.Interrupt();
  EXPECT_FALSE(pair.Take(kReport)) << "too long for the rest";
  EXPECT_FALSE(pair.Take(kReport.substr(22))) << "too short for the rest";
}

TEST(PairedLines, APageOfACellBroadcastHasNoServiceCentre) {
  PairedLines pair = After("+CBM: 88");
  ASSERT_TRUE(pair.Take(std::string(2 * 88, '3')));
  EXPECT_FALSE(pair.IsShort());
}

}  // namespace
