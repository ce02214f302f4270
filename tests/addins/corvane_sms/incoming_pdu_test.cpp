// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/incoming_pdu.h"

#include <gtest/gtest.h>

#include <random>

#include "libs/gsm/hexadecimal.h"
#include "tests/support/deliver_pdu.h"
#include "tests/support/gammu_codec.h"

namespace corvane_sms {
namespace {

using test_support::DeliverPdu;
using Type = IncomingPdu::Type;

constexpr std::chrono::sys_seconds At(int hour, int minute, int second) {
  return std::chrono::sys_days(std::chrono::year(2024) / 3 / 5) + std::chrono::hours(hour) +
         std::chrono::minutes(minute) + std::chrono::seconds(second);
}

TEST(IncomingPdu, IsAMessageWithSenderTimeAndText) {
  const IncomingPdu read = ReadIncoming(DeliverPdu().ToHex());
  EXPECT_EQ(read.type, Type::kMessage);
  EXPECT_EQ(read.kind, IncomingKind::kText);
  EXPECT_EQ(read.sender, "+15550101234");
  EXPECT_EQ(read.text, "Hello");
  EXPECT_EQ(read.time, At(9, 7, 3));
}

TEST(IncomingPdu, HasItsTimeInUtc) {
  DeliverPdu pdu;
  pdu.time_stamp[6] = 0x80;  // 8 quarters of an hour ahead of UTC
  EXPECT_EQ(ReadIncoming(pdu.ToHex()).time, At(7, 7, 3));
  pdu.time_stamp[6] = 0x8A;  // 28 quarters behind UTC
  EXPECT_EQ(ReadIncoming(pdu.ToHex()).time, At(16, 7, 3));
}

TEST(IncomingPdu, HasNoTimeIfTheStampIsInvalid) {
  DeliverPdu pdu;
  for (const auto& stamp : {test_support::Octets(7, 0x00), test_support::Octets(7, 0x99),
                            test_support::Octets(7, 0xFF)}) {
    pdu.time_stamp = stamp;
    const IncomingPdu read = ReadIncoming(pdu.ToHex());
    EXPECT_FALSE(read.time);
    EXPECT_EQ(read.text, "Hello") << int{stamp[0]};
  }
}

TEST(IncomingPdu, IsReadFromEveryKindOfSender) {
  struct Case {
    unsigned char length, type;
    test_support::Octets value;
    const char* sender;
  };
  const Case cases[] = {{12, 0x91, {0x94, 0x51, 0x11, 0x32, 0x54, 0x76}, "+491511234567"},
                        {11, 0x91, {0x94, 0x51, 0x11, 0x32, 0x54, 0xF6}, "+49151123456"},
                        {3, 0x81, {0x11, 0xF0}, "110"},
                        {4, 0xA1, {0x10, 0x32}, "0123"},
                        {5, 0xC8, {0x21, 0x43, 0xF5}, "12345"},
                        {4, 0x81, {0x0A, 0xB1}, "*01#"},
                        {7, 0xD0, test_support::Pack("Bank"), "Bank"},
                        {14, 0xD0, test_support::Pack("Waterworks"), "Waterwor"},
                        {20, 0xD0, test_support::Pack("Waterworks7"), "Waterworks7"},
                        {0, 0x81, {}, ""}};
  for (const Case& one : cases) {
    DeliverPdu pdu;
    pdu.address_length = one.length;
    pdu.address_type = one.type;
    pdu.address = one.value;
    pdu.address.resize((one.length + 1U) / 2);
    const IncomingPdu read = ReadIncoming(pdu.ToHex());
    EXPECT_EQ(read.sender, one.sender);
    EXPECT_EQ(read.text, "Hello") << one.sender;
  }
}

TEST(IncomingPdu, IsATextWhateverItsProtocolIdentifierAndClass) {
  DeliverPdu pdu;
  for (const unsigned identifier : {0x00u, 0x20u, 0x39u, 0x40u, 0x41u, 0x47u, 0x5Fu, 0x7Fu}) {
    pdu.protocol_identifier = static_cast<unsigned char>(identifier);
    EXPECT_EQ(ReadIncoming(pdu.ToHex()).text, "Hello") << identifier;
  }
  for (const unsigned scheme : {0x00u, 0x10u, 0x11u, 0xF0u, 0xC0u, 0xC8u, 0xD0u, 0x80u}) {
    pdu.coding_scheme = static_cast<unsigned char>(scheme);
    const IncomingPdu read = ReadIncoming(pdu.ToHex());
    EXPECT_EQ(read.text, "Hello") << scheme;
    EXPECT_EQ(read.kind, IncomingKind::kText) << scheme;
  }
}

TEST(IncomingPdu, IsBinaryData) {
  DeliverPdu pdu;
  pdu.coding_scheme = 0x04;
  pdu.user_data = {0x00, 0xFF, 0x1A};
  pdu.user_data_length = 3;
  const IncomingPdu read = ReadIncoming(pdu.ToHex());
  EXPECT_EQ(read.kind, IncomingKind::kBinary);
  EXPECT_EQ(read.text, "00FF1A");
  EXPECT_EQ(read.sender, "+15550101234");
}

TEST(IncomingPdu, IsReadWithPaddingAfterIt) {
  EXPECT_EQ(ReadIncoming(DeliverPdu().ToHex() + "FFFFFF").text, "Hello");
}

TEST(IncomingPdu, OfAReservedTypeIsReadAsAMessage) {
  DeliverPdu pdu;
  pdu.first_octet = 0x07;
  EXPECT_EQ(ReadIncoming(pdu.ToHex()).text, "Hello");
}

TEST(IncomingPdu, ThatCannotBeDecodedIsHandedOverAsItCame) {
  const std::string whole = DeliverPdu().ToHex();
  const std::string cases[] = {"",
                               "0",
                               "07",
                               "hello",
                               "0791F",
                               whole.substr(0, whole.size() - 2),
                               whole.substr(0, whole.size() - 1),
                               "0001000B915155101032F4000005E8329BFD06"};
  for (const std::string& pdu : cases) {
    const IncomingPdu read = ReadIncoming(pdu);
    EXPECT_EQ(read.type, Type::kMessage) << pdu;
    EXPECT_EQ(read.kind, IncomingKind::kUndecoded) << pdu;
    EXPECT_EQ(read.text, pdu);
    EXPECT_EQ(read.sender, "") << pdu;
    EXPECT_FALSE(read.time) << pdu;
  }
}

TEST(IncomingPdu, OfAnyOctetsGivesAReadableText) {
  EXPECT_EQ(ReadIncoming(std::string_view("07\0\xFF\x7F\x1B~", 7)).text, "07????~");
}

TEST(IncomingPdu, IsAPartWithItsPlace) {
  const IncomingPdu read = ReadIncoming(test_support::Part(200, 3, 2, "level").ToHex());
  EXPECT_EQ(read.type, Type::kPart);
  EXPECT_EQ(read.place, (gsm::Concatenation{200, 3, 2, false}));
  EXPECT_EQ(read.sender, "+15550101234");
  EXPECT_EQ(read.time, At(9, 7, 3));
}

TEST(IncomingPdu, WithAnImpossiblePlaceIsAMessage) {
  for (const auto& [total, sequence] : {std::pair(0, 0), std::pair(2, 0), std::pair(2, 3)}) {
    const auto pdu = test_support::Part(1, static_cast<unsigned char>(total),
                                        static_cast<unsigned char>(sequence), "level");
    const IncomingPdu read = ReadIncoming(pdu.ToHex());
    EXPECT_EQ(read.type, Type::kMessage) << sequence << "/" << total;
    EXPECT_EQ(read.text, "level");
  }
}

TEST(IncomingPdu, IsAStatusReport) {
  const IncomingPdu read = ReadIncoming("0006C80B915155101032F4621013210000406210132100304000");
  EXPECT_EQ(read.type, Type::kReport);
  EXPECT_EQ(read.report.message_reference, 0xC8);
  EXPECT_EQ(read.report.recipient, "+15550101234");
  EXPECT_EQ(ReadIncoming("0006C80B915155101032F462101321").kind, IncomingKind::kUndecoded);
}

TEST(IncomingPdu, IsOutgoingIfItIsASubmit) {
  EXPECT_TRUE(IsOutgoing("0001000B915155101032F4000005E8329BFD06"));
  EXPECT_TRUE(IsOutgoing("07915155000000F011000B915155101032F40000FF05E8329BFD06"));
  EXPECT_FALSE(IsOutgoing(DeliverPdu().ToHex()));
  EXPECT_FALSE(IsOutgoing("0006C80B915155101032F4"));
  EXPECT_FALSE(IsOutgoing(""));
  EXPECT_FALSE(IsOutgoing("x"));
}

messages::Part PartOf(const DeliverPdu& pdu) {
  messages::Part part;
  part.pdu = pdu.ToHex();
  return part;
}

TEST(Parts, HaveOneTextEvenIfACharacterIsSplitBetweenTwo) {
  DeliverPdu first = test_support::Part(1, 2, 1, "level ");
  first.user_data.insert(first.user_data.end(), {0xD8, 0x3C});  // half of U+1F30A
  first.user_data_length += 2;
  DeliverPdu second = test_support::Part(1, 2, 2, "!");
  second.user_data.insert(second.user_data.begin() + 6, {0xDF, 0x0A});
  second.user_data_length += 2;
  const messages::Part parts[] = {PartOf(first), PartOf(second)};
  const messages::PartsText content = ReadParts(parts);
  EXPECT_EQ(content.text, "level \U0001F30A!");
  EXPECT_FALSE(content.binary);
}

TEST(Parts, AreBinaryIfAllOfThemAre) {
  DeliverPdu binary = test_support::Part(1, 2, 1, "ab");
  binary.coding_scheme = 0x04;
  const messages::Part text = PartOf(test_support::Part(1, 2, 2, "c"));
  EXPECT_TRUE(ReadParts(std::vector{PartOf(binary), PartOf(binary)}).binary);
  const messages::PartsText mixed = ReadParts(std::vector{PartOf(binary), text});
  EXPECT_FALSE(mixed.binary);
  EXPECT_EQ(mixed.text, "00610062c");
}

TEST(Parts, HaveTheSameContentWhateverTheirTime) {
  const DeliverPdu first = test_support::Part(1, 2, 1, "level");
  DeliverPdu again = first;
  again.time_stamp[5] = 0x44;
  again.service_centre[2] = 0x99;
  EXPECT_TRUE(HaveSameContent(PartOf(first), PartOf(again)));
  EXPECT_FALSE(HaveSameContent(PartOf(first), PartOf(test_support::Part(1, 2, 1, "lever"))));
  messages::Part damaged = PartOf(first);
  damaged.pdu = "00";
  EXPECT_FALSE(HaveSameContent(damaged, damaged)) << "what cannot be read is not compared";
}

TEST(IncomingPdu, IsReadAsGammuReadsIt) {
  std::mt19937 random(27005);
  int compared = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (std::size_t i = random() % 100; i > 0; --i) {
      text += static_cast<char>('a' + random() % 26);
    }
    DeliverPdu pdu = test_support::TextMessage(text);
    if (round % 3 == 0) {  // an octet is damaged
      test_support::Octets octets = pdu.ToOctets();
      octets[random() % octets.size()] = static_cast<unsigned char>(random());
      EXPECT_NO_THROW((void)ReadIncoming(test_support::Hex(octets)));
      continue;
    }
    const IncomingPdu read = ReadIncoming(pdu.ToHex());
    const auto gammu = test_support::GammuDecode(pdu.ToOctets());
    ASSERT_TRUE(gammu.decoded);
    EXPECT_EQ(read.text, gammu.text);
    EXPECT_EQ(read.sender, gammu.number);
    ++compared;
  }
  EXPECT_EQ(compared, 2000);
}

}  // namespace
}  // namespace corvane_sms
