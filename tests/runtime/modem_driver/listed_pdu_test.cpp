// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/listed_pdu.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using corvane::IsWholePdu;
using corvane::PduEnd;

const std::string kListedPdu =  // a TPDU of 30 octets
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
const std::string kStatusReport =  // of 25
    "07911326040000F006050B911346610089F6208062917314082080629173140800";

std::string HeaderOf(const std::string& length) {
  return "+CMGL: 1,0,," + length;
}

/// The line up to the place that is taken for the end of its PDU.
std::string CutOf(const std::string& length, const std::string& line) {
  return line.substr(0, PduEnd(HeaderOf(length), line));
}

std::string FilledUp(std::string line) {
  while (line.size() < 2 * 176) line += "FF";
  return line;
}

TEST(PduEnd, CutsTheFilling) {
  EXPECT_EQ(CutOf("30", FilledUp(kListedPdu)), kListedPdu);
  EXPECT_EQ(CutOf("30", kListedPdu + "`\"~"), kListedPdu);
  EXPECT_EQ(CutOf("30", kListedPdu + "FF`\"~"), kListedPdu);
}

TEST(PduEnd, CutsWhateverFollowsWhereBothPlacesAgree) {
  EXPECT_EQ(CutOf("30", kListedPdu + "0000"), kListedPdu);
  EXPECT_EQ(CutOf("30", kListedPdu + kListedPdu), kListedPdu);
}

TEST(PduEnd, AWrongLengthTakesNothingFromAMessage) {
  for (const std::string length : {"0", "1", "20", "29", "31", "78", "999", "-1", "",
                                   "18446744073709551615", "9223372036854775807"}) {
    EXPECT_EQ(CutOf(length, kListedPdu), kListedPdu) << length;
    EXPECT_EQ(CutOf(length, FilledUp(kListedPdu)), kListedPdu) << length;
    EXPECT_EQ(CutOf(length, kListedPdu + "0000"), length == "30" ? kListedPdu : kListedPdu + "0000")
        << length;
  }
}

TEST(PduEnd, ATextOfTheDigitFIsNotFilling) {
  // 8 times the character 0x7F, and the octets FFFF of 8-bit data.
  const std::string text = "00040B911346610089F600002080629173140808FFFFFFFFFFFFFF";
  EXPECT_EQ(CutOf("26", text), text);
  EXPECT_EQ(CutOf("20", text), text) << "announced too short";
  EXPECT_EQ(CutOf("26", text + "FFFF"), text);
  const std::string data = "00040B911346610089F600042080629173140802FFFF";
  EXPECT_EQ(CutOf("19", data), data);
}

TEST(PduEnd, OfAnotherKindOfPduIsTheAnnouncedOneIfFillingFollows) {
  EXPECT_EQ(CutOf("25", FilledUp(kStatusReport)), kStatusReport);
  EXPECT_EQ(CutOf("25", kStatusReport + "0000"), kStatusReport + "0000");
  EXPECT_EQ(CutOf("78", FilledUp(kStatusReport)), FilledUp(kStatusReport).substr(0, 2 * (8 + 78)));
}

TEST(PduEnd, OfAPduThatUnderstatesItsLengthIsTheAnnouncedOne) {
  // Senders exist whose user-data length is too small; the blocks show the whole text.
  const std::string more = kListedPdu + "41FF";
  EXPECT_EQ(CutOf("32", more), more);
  EXPECT_EQ(CutOf("32", FilledUp(more)), more);
}

TEST(PduEnd, OfALineThatIsNotAPduIsTheWholeLine) {
  for (const std::string& line : std::vector<std::string>{"", "Hello", "07", "~" + kListedPdu})
    EXPECT_EQ(CutOf("30", line), line);
}

TEST(IsWholePdu, NeedsTheLengthThatEitherPlaceGives) {
  const auto whole = [](const std::string& length, std::size_t missing) {
    return IsWholePdu(HeaderOf(length), kListedPdu.substr(0, kListedPdu.size() - missing), false);
  };
  EXPECT_TRUE(whole("30", 0));
  EXPECT_FALSE(whole("30", 1));
  EXPECT_FALSE(whole("30", 2));
  EXPECT_TRUE(whole("999", 0));
  EXPECT_FALSE(whole("10", 2));
  EXPECT_FALSE(IsWholePdu(HeaderOf("25"), kStatusReport.substr(2), false));
  EXPECT_TRUE(IsWholePdu(HeaderOf("25"), kStatusReport, false));
  EXPECT_FALSE(IsWholePdu(HeaderOf(""), kStatusReport, false)) << "neither has a length";
  EXPECT_FALSE(IsWholePdu(HeaderOf("30"), "", false));
}

TEST(IsWholePdu, IsSureIfTheLineIsLongEnoughForBoth) {
  EXPECT_TRUE(IsWholePdu(HeaderOf("30"), kListedPdu, true));
  EXPECT_TRUE(IsWholePdu(HeaderOf("10"), kListedPdu, true));
  EXPECT_FALSE(IsWholePdu(HeaderOf("999"), kListedPdu, true));
  EXPECT_FALSE(IsWholePdu(HeaderOf("10"), kListedPdu.substr(2), true));
}

}  // namespace
