// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms_delivered.h"

#include <gtest/gtest.h>

#include <random>

#include "share/file_time.h"
#include "tests/support/deliver_pdu.h"

namespace {

using sms::SMSDelivered;
using test_support::DeliverPdu;
using test_support::Octets;
using test_support::TextMessage;

constexpr const char* kTruncated = "The PDU is truncated.";

SMSDelivered Decode(const Octets& pdu) {
  SMSDelivered message(7);
  message.decode(pdu);
  return message;
}

SMSDelivered Decode(const DeliverPdu& pdu) {
  return Decode(pdu.ToOctets());
}

std::int64_t FileTime(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                      unsigned second) {
  const auto field = [](unsigned value) { return static_cast<std::uint16_t>(value); };
  const RTime time{field(year),   field(month),  field(day), field(hour),
                   field(minute), field(second), 0};
  return RTimeToFileTime(&time);
}

TEST(DeliveredMessage, StartsEmpty) {
  const SMSDelivered message(9);
  EXPECT_EQ(message.status, 0);
  EXPECT_EQ(message.storageIndex, 9);
  EXPECT_EQ(message.seq, 0);
  EXPECT_EQ(message.total, 0);
  EXPECT_EQ(message.ref, 0);
  EXPECT_EQ(message.time, 0);
  EXPECT_EQ(message.number, "");
  EXPECT_EQ(message.text, "");
}

TEST(DeliveredMessage, OfAnInternationalNumberOfElevenDigitsIsDecodedWhole) {
  const SMSDelivered message = Decode(DeliverPdu{});
  EXPECT_EQ(message.status, 0);
  EXPECT_EQ(message.storageIndex, 7);
  EXPECT_EQ(message.number, "+15550101234");
  EXPECT_EQ(message.time, FileTime(2024, 3, 5, 9, 7, 3));
  EXPECT_EQ(message.text, "Hello");
  EXPECT_EQ(message.total, 0);
}

TEST(DeliveredMessage, OfAnEmptyPduIsLeftUntouched) {
  SMSDelivered message(1);
  message.status = 3;
  message.text = "before";
  message.decode({});
  EXPECT_EQ(message.status, 3);
  EXPECT_EQ(message.text, "before");
}

TEST(DeliveredMessage, NeedsNoServiceCentre) {
  DeliverPdu pdu;
  pdu.service_centre = {0x00};
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(DeliveredMessage, WithANegativeServiceCentreLengthIsRejectedWithoutAText) {
  for (const unsigned char length : Octets{0x80, 0xFF}) {
    DeliverPdu pdu;
    pdu.service_centre = {length};
    const SMSDelivered message = Decode(pdu);
    EXPECT_EQ(message.status, 5);
    EXPECT_EQ(message.text, "");
    EXPECT_EQ(message.number, "");
  }
}

TEST(DeliveredMessage, WithTheLongestServiceCentreIsDecoded) {
  DeliverPdu pdu;
  pdu.service_centre = Octets(128, 0x7F);
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(DeliveredMessage, ThatIsNotADeliverPduIsRejected) {
  for (const unsigned char first_octet : Octets{0x01, 0x05, 0x11, 0xFF}) {
    DeliverPdu pdu;
    pdu.first_octet = first_octet;
    const SMSDelivered message = Decode(pdu);
    EXPECT_EQ(message.status, 5);
    EXPECT_EQ(message.text, "The pdu parameter is not an SMS-DELIVER PDU.");
    EXPECT_EQ(message.number, "");
  }
}

TEST(DeliveredMessage, IsNotRejectedForAnyOtherBitOfTheFirstOctet) {
  DeliverPdu pdu;
  pdu.first_octet = 0xBE;  // in fact a status report
  EXPECT_EQ(Decode(pdu).status, 0);
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(DeliveredMessage, WithAProtocolIdentifierIsRejectedAndKeepsItsNumber) {
  DeliverPdu pdu;
  pdu.protocol_identifier = 0x01;
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.status, 5);
  EXPECT_EQ(message.text, "The PDU's TP-PID field must have the value 0x00.");
  EXPECT_EQ(message.number, "+15550101234");
  EXPECT_EQ(message.time, 0);
}

TEST(DeliveredMessage, WithEightBitDataSaysSo) {
  DeliverPdu pdu;
  pdu.coding_scheme = 0x04;
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.status, 0);
  EXPECT_EQ(message.text, "Can't read Data value");
}

TEST(DeliveredMessage, WithAnotherCodingSchemeHasNoText) {
  for (int scheme = 1; scheme <= 0xFF; ++scheme) {
    if (scheme == 0x04 || scheme == 0x08) continue;
    DeliverPdu pdu;
    pdu.coding_scheme = static_cast<unsigned char>(scheme);
    EXPECT_EQ(Decode(pdu).status, 0);
    EXPECT_EQ(Decode(pdu).text, "") << scheme;
  }
}

TEST(DeliveredMessage, InUcs2IsUtf8) {
  DeliverPdu pdu;
  pdu.coding_scheme = 0x08;
  pdu.user_data = {0x04, 0x16, 0x20, 0xAC, 0xD8, 0x3D, 0xFF, 0xFF, 0x00, 0x41};
  EXPECT_EQ(Decode(pdu).text,
            "\xD0\x96\xE2\x82\xAC"
            "A");
}

TEST(DeliveredMessage, InUcs2OfAnOddLengthIsAnErrorText) {
  DeliverPdu pdu;
  pdu.coding_scheme = 0x08;
  pdu.user_data = {0x04, 0x16, 0x20};
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.text, "ERROR PARSE PDU");
  EXPECT_EQ(message.status, 0);
}

TEST(DeliveredMessage, OfEightCharactersIsDecodedWholeAndOneOfSevenWithATrailingNul) {
  EXPECT_EQ(Decode(TextMessage("12345678")).text, "12345678");
  EXPECT_EQ(Decode(TextMessage("1234567")).text, std::string("1234567\0", 8));
  EXPECT_EQ(Decode(TextMessage("123456")).text, "123456");
}

TEST(DeliveredMessage, RunsToTheEndOfThePduWhateverItsLengthFieldSays) {
  DeliverPdu pdu;
  pdu.user_data_length = 1;
  EXPECT_EQ(Decode(pdu).text, "Hello");
  pdu.user_data_length = 200;
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(DeliveredMessage, WithoutTextHasAnEmptyOne) {
  EXPECT_EQ(Decode(TextMessage("")).text, "");
  EXPECT_EQ(Decode(TextMessage("")).status, 0);
}

TEST(DeliveredMessage, ReadsTheTwoDigitsOfItsYearSwapped) {
  DeliverPdu pdu;
  pdu.time_stamp = {0x21, 0x21, 0x13, 0x32, 0x95, 0x85, 0x00};
  EXPECT_EQ(Decode(pdu).time, FileTime(2012, 12, 31, 23, 59, 58));
}

TEST(DeliveredMessage, IgnoresItsTimeZone) {
  DeliverPdu pdu;
  pdu.time_stamp.back() = 0x8A;
  EXPECT_EQ(Decode(pdu).time, FileTime(2024, 3, 5, 9, 7, 3));
}

TEST(DeliveredMessage, LetsImpossibleDatesCarryOver) {
  DeliverPdu pdu;
  pdu.time_stamp = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(Decode(pdu).time, FileTime(2165, 165, 165, 165, 165, 165));
  EXPECT_EQ(Decode(pdu).status, 0);
}

TEST(DeliveredMessage, ReadsItsPartNumbersFromTheHeaderWhateverItsIdentifierSays) {
  DeliverPdu pdu = test_support::Part(0xAB, 3, 2, "part");
  SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.ref, 0xAB);
  EXPECT_EQ(message.total, 3);
  EXPECT_EQ(message.seq, 2);
  EXPECT_EQ(message.text, "part");
  pdu.user_data[0] = 0x99;
  pdu.user_data[1] = 0x08;
  pdu.user_data[2] = 0x00;
  message = Decode(pdu);
  EXPECT_EQ(message.ref, 0xAB);
  EXPECT_EQ(message.text, "part");
}

TEST(DeliveredMessage, InSeptetsDoesNotSkipTheFillBitsAfterItsHeader) {
  DeliverPdu pdu;
  pdu.first_octet = 0x44;
  const Octets header = {0x05, 0x00, 0x03, 0x01, 0x02, 0x01};
  pdu.user_data = header;
  const Octets text = test_support::Pack("abc");
  pdu.user_data.insert(pdu.user_data.end(), text.begin(), text.end());
  EXPECT_EQ(Decode(pdu).text, "abc");
}

TEST(DeliveredMessage, WithAHeaderThatEndsTooEarlyIsTruncatedAndHasNoPartNumbers) {
  DeliverPdu pdu = test_support::Part(0xAB, 3, 2, "");
  for (std::size_t length = 0; length < 6; ++length) {
    pdu.user_data.resize(length);
    const SMSDelivered message = Decode(pdu);
    EXPECT_EQ(message.status, 5);
    EXPECT_EQ(message.text, kTruncated);
    EXPECT_EQ(message.ref, 0);
    EXPECT_EQ(message.total, 0);
  }
}

TEST(OriginatorAddress, OfUnknownTypeIsReadAsInternationalWithoutThePlus) {
  DeliverPdu pdu;
  pdu.address_type = 0xA1;
  EXPECT_EQ(Decode(pdu).number, "15550101234");
}

TEST(OriginatorAddress, OfType81WithAnEvenLengthIsReadWhole) {
  DeliverPdu pdu;
  pdu.address_type = 0x81;
  pdu.address_length = 4;
  pdu.address = {0x21, 0x43};
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.number, "1234");
  EXPECT_EQ(message.text, "Hello");
}

TEST(OriginatorAddress, OfType81WithAnOddLengthLeavesItsLastOctetUnread) {
  DeliverPdu pdu;
  pdu.address_type = 0x81;
  pdu.address_length = 3;
  pdu.address = {0x21, 0xF3};
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.number, "12");
  EXPECT_EQ(message.status, 5);  // its last octet is where the protocol identifier is expected
  EXPECT_EQ(message.text, "The PDU's TP-PID field must have the value 0x00.");
}

TEST(OriginatorAddress, OfType81OfOneDigitIsEmpty) {
  DeliverPdu pdu;
  pdu.address_type = 0x81;
  pdu.address_length = 1;
  pdu.address = {0x00};
  EXPECT_EQ(Decode(pdu).number, "");
}

TEST(OriginatorAddress, InternationalOfEvenLengthRunsOnIntoTheFollowingFields) {
  DeliverPdu pdu;
  pdu.address_length = 12;
  pdu.address = {0x94, 0x71, 0x11, 0x32, 0x54, 0x76};
  // Six octets more: 00 (protocol), 00 (coding), 42 30 50 90 of the time stamp.
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.number,
            "+491711234567"
            "000024030509");
  EXPECT_EQ(message.status, 5);  // 70, the minute, is taken for the protocol identifier
}

TEST(OriginatorAddress, EndsAtAFillerAnywhere) {
  DeliverPdu pdu;
  pdu.address = {0x21, 0xF3};
  EXPECT_EQ(Decode(pdu).number, "+123");
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(OriginatorAddress, DoesNotCheckItsDigits) {
  DeliverPdu pdu;
  pdu.address = {0xBA, 0xFF};
  EXPECT_EQ(Decode(pdu).number, "+:;?");
  pdu.address = {0xDC, 0xEF, 0xFE};
  EXPECT_EQ(Decode(pdu).number, "+<=?>>");
}

TEST(OriginatorAddress, OfNoDigitsIsEmpty) {
  DeliverPdu pdu;
  pdu.address_length = 0;
  pdu.address = {};
  EXPECT_EQ(Decode(pdu).number, "+");
  pdu.address_type = 0x81;
  EXPECT_EQ(Decode(pdu).number, "");
  pdu.address_type = 0xD0;
  EXPECT_EQ(Decode(pdu).number, "");
  EXPECT_EQ(Decode(pdu).text, "Hello");
}

TEST(OriginatorAddress, OfANameOfUpToSixCharactersIsThatName) {
  for (const std::string name : {"A", "AB", "ABC", "ABCD", "INFO1", "CLIENT"}) {
    DeliverPdu pdu;
    pdu.address_type = 0xD0;
    pdu.address_length = static_cast<unsigned char>((name.size() * 7 + 3) / 4);
    pdu.address = test_support::Pack(name);
    EXPECT_EQ(Decode(pdu).number, name);
    EXPECT_EQ(Decode(pdu).text, "Hello") << name;
  }
}

TEST(OriginatorAddress, OfANameCountsItsSeptetsAsOctets) {
  DeliverPdu pdu;
  pdu.address_type = 0xD0;
  pdu.address_length = 14;  // seven octets; eight are read
  pdu.address = test_support::Pack("ABCDEFGH");
  const SMSDelivered message = Decode(pdu);
  EXPECT_EQ(message.number, std::string("ABCDEFGH\0", 9));
  EXPECT_EQ(message.status, 0);
  EXPECT_EQ(message.text, "");  // the year is where the coding scheme is expected
}

TEST(TruncatedPdu, IsRejectedWhereverItEndsBeforeItsText) {
  const Octets whole = TextMessage("").ToOctets();
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const SMSDelivered message =
        Decode(Octets(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_EQ(message.status, 5) << length;
    EXPECT_EQ(message.text, kTruncated) << length;
    EXPECT_EQ(message.time, 0) << length;
  }
  EXPECT_EQ(Decode(whole).status, 0);
}

TEST(TruncatedPdu, KeepsWhatItHasOfItsNumber) {
  DeliverPdu pdu;
  Octets octets = pdu.ToOctets();
  octets.resize(pdu.service_centre.size() + 3 + 2);
  EXPECT_EQ(Decode(octets).number, "+1555");
}

TEST(TruncatedPdu, IsRejectedWhenTheAddressAsksForMoreThanThereIs) {
  for (const unsigned char type : Octets{0x81, 0x91, 0xA1, 0xD0}) {
    DeliverPdu pdu;
    pdu.address_type = type;
    pdu.address_length = 0xFF;
    pdu.address = Octets(4, 0x11);
    pdu.user_data = {};  // no filler anywhere
    EXPECT_EQ(Decode(pdu).status, 5);
    EXPECT_EQ(Decode(pdu).text, kTruncated);
  }
}

TEST(AnyOctets, AreDecodedWithoutHarm) {
  std::mt19937 random(20240305);
  std::uniform_int_distribution<int> octet(0, 0xFF);
  std::uniform_int_distribution<std::size_t> length(0, 200);
  int rejected = 0;
  for (int i = 0; i < 200'000; ++i) {
    Octets pdu(length(random));
    for (unsigned char& value : pdu) value = static_cast<unsigned char>(octet(random));
    if (i % 2 == 0 && pdu.size() > 20) {  // far enough to be decoded
      pdu[0] = 0;
      pdu[1] = static_cast<unsigned char>(pdu[1] & 0xFE);
      pdu[2] = static_cast<unsigned char>(pdu[2] % 24);
    }
    const SMSDelivered message = Decode(pdu);
    EXPECT_TRUE(message.status == 0 || message.status == 5);
    rejected += message.status == 5 ? 1 : 0;
  }
  EXPECT_GT(rejected, 50'000);
  EXPECT_LT(rejected, 199'900);  // some are decoded
}

TEST(AnyOctets, OfAMessageWithChangesAreDecodedWithoutHarm) {
  std::mt19937 random(7);
  const Octets original = test_support::Part(1, 2, 1, "some text").ToOctets();
  std::uniform_int_distribution<std::size_t> position(0, original.size() - 1);
  std::uniform_int_distribution<int> octet(0, 0xFF);
  for (int i = 0; i < 100'000; ++i) {
    Octets pdu = original;
    for (int change = 0; change < 3; ++change) {
      pdu[position(random)] = static_cast<unsigned char>(octet(random));
    }
    pdu.resize(position(random));
    const SMSDelivered message = Decode(pdu);
    EXPECT_TRUE(message.status == 0 || message.status == 5);
  }
}

}  // namespace
