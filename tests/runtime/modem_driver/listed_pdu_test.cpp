// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/listed_pdu.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using corvane::IsWholePdu;
using corvane::PduEnd;

const std::string kPdu =  // a TPDU of 30 octets
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
const std::string kStatusReport =  // of 25
    "07911326040000F006050B911346610089F6208062917314082080629173140800";

std::string Header(const std::string& length) {
  return "+CMGL: 1,0,," + length;
}

/// The line up to what is taken for the end of its PDU.
std::string Cut(const std::string& length, const std::string& line) {
  return line.substr(0, PduEnd(Header(length), line));
}

std::string Filled(std::string line) {
  while (line.size() < 2 * 176) line += "FF";
  return line;
}

TEST(PduEnd, CutsTheFilling) {
  EXPECT_EQ(Cut("30", Filled(kPdu)), kPdu);
  EXPECT_EQ(Cut("30", kPdu + "`\"~"), kPdu);
  EXPECT_EQ(Cut("30", kPdu + "FF`\"~"), kPdu);
}

TEST(PduEnd, CutsWhateverFollowsWhereBothPlacesAgree) {
  EXPECT_EQ(Cut("30", kPdu + "0000"), kPdu);
  EXPECT_EQ(Cut("30", kPdu + kPdu), kPdu);
}

TEST(PduEnd, ALengthThatIsWrongTakesNothingFromAMessage) {
  for (const std::string length : {"0", "1", "20", "29", "31", "78", "999", "-1", "",
                                   "18446744073709551615", "9223372036854775807"}) {
    EXPECT_EQ(Cut(length, kPdu), kPdu) << length;
    EXPECT_EQ(Cut(length, Filled(kPdu)), kPdu) << length;
    EXPECT_EQ(Cut(length, kPdu + "0000"), length == "30" ? kPdu : kPdu + "0000") << length;
  }
}

TEST(PduEnd, ATextOfTheDigitFIsNoFilling) {
  // 8 times the character 0x7F, and the octets FFFF of 8-bit data.
  const std::string text = "00040B911346610089F600002080629173140808FFFFFFFFFFFFFF";
  EXPECT_EQ(Cut("26", text), text);
  EXPECT_EQ(Cut("20", text), text) << "announced too short";
  EXPECT_EQ(Cut("26", text + "FFFF"), text);
  const std::string data = "00040B911346610089F600042080629173140802FFFF";
  EXPECT_EQ(Cut("19", data), data);
}

TEST(PduEnd, OfAnotherKindOfPduIsTheAnnouncedOneInFrontOfFilling) {
  EXPECT_EQ(Cut("25", Filled(kStatusReport)), kStatusReport);
  EXPECT_EQ(Cut("25", kStatusReport + "0000"), kStatusReport + "0000");
  EXPECT_EQ(Cut("78", Filled(kStatusReport)), Filled(kStatusReport).substr(0, 2 * (8 + 78)));
}

TEST(PduEnd, OfAPduThatSaysLessOfItselfIsTheAnnouncedOne) {
  // Senders exist whose user-data length is too small; the blocks show the whole text.
  const std::string more = kPdu + "41FF";
  EXPECT_EQ(Cut("32", more), more);
  EXPECT_EQ(Cut("32", Filled(more)), more);
}

TEST(PduEnd, OfWhatIsNoPduIsTheWholeLine) {
  for (const std::string& line : std::vector<std::string>{"", "Hello", "07", "~" + kPdu})
    EXPECT_EQ(Cut("30", line), line);
}

TEST(IsWholePdu, NeedsWhatEitherPlaceTells) {
  const auto whole = [](const std::string& length, std::size_t missing) {
    return IsWholePdu(Header(length), kPdu.substr(0, kPdu.size() - missing), false);
  };
  EXPECT_TRUE(whole("30", 0));
  EXPECT_FALSE(whole("30", 1));
  EXPECT_FALSE(whole("30", 2));
  EXPECT_TRUE(whole("999", 0));
  EXPECT_FALSE(whole("10", 2));
  EXPECT_FALSE(IsWholePdu(Header("25"), kStatusReport.substr(2), false));
  EXPECT_TRUE(IsWholePdu(Header("25"), kStatusReport, false));
  EXPECT_FALSE(IsWholePdu(Header(""), kStatusReport, false)) << "neither tells";
  EXPECT_FALSE(IsWholePdu(Header("30"), "", false));
}

TEST(IsWholePdu, IsSureWhereBothPlacesAreContent) {
  EXPECT_TRUE(IsWholePdu(Header("30"), kPdu, true));
  EXPECT_TRUE(IsWholePdu(Header("10"), kPdu, true));
  EXPECT_FALSE(IsWholePdu(Header("999"), kPdu, true));
  EXPECT_FALSE(IsWholePdu(Header("10"), kPdu.substr(2), true));
}

}  // namespace
