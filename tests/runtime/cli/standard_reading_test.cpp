// SPDX-License-Identifier: MIT
#include "runtime/cli/standard_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/support/deliver_pdu.h"

namespace {

using corvane::cli::Causes;
using corvane::cli::Differences;
using corvane::cli::ReadByStandard;
using test_support::DeliverPdu;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::vector<std::string> DifferencesOf(const DeliverPdu& pdu) {
  sms::SMSDelivered block(0);
  block.decode(pdu.ToOctets());
  return Differences(block, ReadByStandard(pdu.ToOctets()));
}

/// A message from a number of `digits` digits.
DeliverPdu From(unsigned char digits, unsigned char type, const test_support::Octets& address) {
  DeliverPdu pdu;
  pdu.address_length = digits;
  pdu.address_type = type;
  pdu.address = address;
  return pdu;
}

TEST(Differences, AreNoneWhereReadSmsKeepsToTheStandard) {
  EXPECT_THAT(DifferencesOf({}), IsEmpty());
  EXPECT_THAT(DifferencesOf(test_support::Part(7, 3, 2, "two")), IsEmpty());
  EXPECT_THAT(DifferencesOf(From(4, 0x81, {0x21, 0x43})), IsEmpty());
}

TEST(Differences, OfAnInternationalNumberWithAnEvenNumberOfDigits) {
  const DeliverPdu pdu = From(12, 0x91, {0x94, 0x51, 0x21, 0x43, 0x65, 0x87});
  EXPECT_THAT(
      DifferencesOf(pdu),
      ElementsAre("number  +491512345678", "time    2024-03-05T09:07:03+00:00", "text    Hello"));
  EXPECT_THAT(Causes(pdu.ToOctets()),
              ElementsAre("The sender's number has an even number of digits, 12: READ_SMS reads on "
                          "into the fields after it."));
}

TEST(Differences, OfANationalNumberWithAnOddNumberOfDigits) {
  const DeliverPdu pdu = From(5, 0x81, {0x21, 0x43, 0xF5});
  EXPECT_THAT(DifferencesOf(pdu), testing::Contains("number  12345"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(HasSubstr("has an odd number of digits, 5: ")));
}

TEST(Differences, OfOtherSenders) {
  const auto name = test_support::Pack("Stadtwerke");
  EXPECT_THAT(Causes(From(18, 0xD0, name).ToOctets()),
              ElementsAre(HasSubstr("a name of more than seven characters")));
  EXPECT_THAT(Causes(From(4, 0xA1, {0x21, 0x43}).ToOctets()),
              ElementsAre(HasSubstr("The type of the sender's number is 0xA1")));
}

TEST(Differences, OfAProtocolIdentifierThatIsNot0) {
  DeliverPdu pdu;
  pdu.protocol_identifier = 0x41;
  EXPECT_THAT(
      DifferencesOf(pdu),
      ElementsAre("number  +15550101234", "time    2024-03-05T09:07:03+00:00", "text    Hello"));
  EXPECT_THAT(Causes(pdu.ToOctets()),
              ElementsAre("Its protocol identifier is 0x41: READ_SMS accepts only 0x00."));
}

TEST(Differences, OfTheTimeZone) {
  DeliverPdu pdu;
  pdu.time_stamp.back() = 0x40;  // a quarter of an hour is 0x10
  EXPECT_THAT(DifferencesOf(pdu), ElementsAre("time    2024-03-05T09:07:03+01:00"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre("READ_SMS leaves out the time zone."));
}

TEST(Differences, OfTexts) {
  DeliverPdu pdu = test_support::TextMessage(std::string("\0 \2 \x7B", 5));
  EXPECT_THAT(DifferencesOf(pdu), ElementsAre("text    @ $ ä"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(StartsWith("It is in the GSM alphabet: ")));
  pdu = {};
  pdu.coding_scheme = 0x10;
  EXPECT_THAT(DifferencesOf(pdu), ElementsAre("text    Hello"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(StartsWith("Its data coding scheme is 0x10: ")));
  pdu.coding_scheme = 0x08;
  pdu.user_data_length = 4;
  pdu.user_data = {0xD8, 0x3D, 0xDE, 0xB0};
  EXPECT_THAT(DifferencesOf(pdu), ElementsAre("text    🚰"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(HasSubstr("characters above U+FFFF")));
  pdu = {};
  pdu.user_data.push_back('x');
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(HasSubstr("READ_SMS takes the rest for text")));
}

TEST(Differences, OfHeaders) {
  DeliverPdu pdu = test_support::Part(7, 3, 2, "two");
  // The same part with a reference of two octets (clause 9.2.3.24.8).
  const test_support::Octets wide = {0x06, 0x08, 0x04, 0x01, 0x07, 0x03, 0x02};
  pdu.user_data.erase(pdu.user_data.begin(), pdu.user_data.begin() + 6);
  pdu.user_data.insert(pdu.user_data.begin(), wide.begin(), wide.end());
  ++pdu.user_data_length;
  EXPECT_THAT(DifferencesOf(pdu), ElementsAre("part    2 of 3, reference 263", "text    two"));
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre(StartsWith("Its user-data header is not just ")));
}

TEST(ReadByStandard, RecognizesWhatIsNotAMessageFromTheNetwork) {
  EXPECT_EQ(ReadByStandard(test_support::Octets{0x00, 0x03}).problem,
            "its message type is reserved");
  DeliverPdu pdu;
  pdu.first_octet = 0x02;
  EXPECT_EQ(ReadByStandard(pdu.ToOctets()).kind, "status report");
  EXPECT_THAT(Causes(pdu.ToOctets()), ElementsAre("It is a status report."));
  pdu.first_octet = 0x01;
  EXPECT_EQ(ReadByStandard(pdu.ToOctets()).kind, "message to the network");
  pdu.first_octet = 0x03;
  EXPECT_EQ(ReadByStandard(pdu.ToOctets()).kind, "reserved");
  EXPECT_THAT(Causes(pdu.ToOctets()), IsEmpty()) << "the problem says it";
}

TEST(ReadByStandard, SaysWhereAPduIsCutOff) {
  auto octets = DeliverPdu{}.ToOctets();
  octets.resize(13);
  EXPECT_EQ(ReadByStandard(octets).problem, "octets are missing (octet 14)");
  EXPECT_THAT(Causes(octets), IsEmpty());
}

TEST(ReadByStandard, SurvivesAnyOctets) {
  std::mt19937 random(1);
  for (int round = 0; round < 5000; ++round) {
    test_support::Octets octets(random() % 40);
    for (auto& octet : octets) octet = static_cast<unsigned char>(random());
    sms::SMSDelivered block(0);
    block.decode(octets);
    const auto lines = Differences(block, ReadByStandard(octets));
    // Every difference has its cause.
    if (block.status != 0 || lines.empty()) continue;
    ASSERT_THAT(Causes(octets), testing::Not(IsEmpty())) << test_support::Hex(octets);
  }
}

}  // namespace
