// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms_submit.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/captured_log.h"
#include "tests/support/deliver_pdu.h"

namespace {

using sms::SMSSubmit;
using test_support::Octets;

const std::string kNumber = "15550101234";

/// `count` times the letter U+0416.
std::string Cyrillic(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += "\xD0\x96";
  return text;
}

SMSSubmit Submit(const std::string& text, const std::string& number = kNumber) {
  SMSSubmit message;
  EXPECT_EQ(message.encode(text, number), 0);
  return message;
}

/// The octets of a PDU to kNumber.
struct Fields {
  explicit Fields(const Octets& pdu)
      : first_octet(pdu.at(1)),
        coding_scheme(pdu.at(12)),
        user_data_length(pdu.at(13)),
        user_data(pdu.begin() + 14, pdu.end()) {}
  unsigned first_octet;
  unsigned coding_scheme;
  unsigned user_data_length;
  Octets user_data;
};

TEST(SubmitMessage, OfFiveCharactersIsOnePdu) {
  const SMSSubmit message = Submit("Hello");
  ASSERT_EQ(message.pdus.size(), 1u);
  EXPECT_EQ(test_support::Hex(message.pdus[0]), "0001000B915155101032F4000005C8329BFD06");
}

TEST(SubmitMessage, UsesTheCounterValueFromBeforeItsConstruction) {
  const unsigned char before = SMSSubmit::smsID;
  const SMSSubmit message;
  EXPECT_EQ(message._refNumber, before);
  EXPECT_EQ(message.status, 0);
  EXPECT_TRUE(message.pdus.empty());
}

TEST(SubmitMessage, CountsReferencesTo255AndThenFrom0Again) {
  SMSSubmit::smsID = 0;
  for (int i = 1; i < 256; ++i) SMSSubmit{};
  EXPECT_EQ(SMSSubmit()._refNumber, 255);
  EXPECT_EQ(SMSSubmit()._refNumber, 0);
}

TEST(SubmitMessage, ThatFailsToEncodeStillUsesUpAReference) {
  SMSSubmit failed;
  EXPECT_EQ(failed.encode("\xFF", kNumber), 11);
  EXPECT_EQ(SMSSubmit()._refNumber, static_cast<unsigned char>(failed._refNumber + 1));
}

TEST(SubmitMessage, ToANumberOfEvenLengthHasNoFiller) {
  const SMSSubmit message = Submit("Hello", "491711234567");
  EXPECT_EQ(test_support::Hex(message.pdus[0]), "0001000C91947111325476000005C8329BFD06");
}

TEST(SubmitMessage, Of70CyrillicCharactersIsOneUcs2PduWithoutAHeader) {
  const SMSSubmit message = Submit(Cyrillic(70));
  ASSERT_EQ(message.pdus.size(), 1u);
  const Fields pdu(message.pdus[0]);
  EXPECT_EQ(pdu.first_octet, 0x01u);
  EXPECT_EQ(pdu.coding_scheme, 0x08u);
  EXPECT_EQ(pdu.user_data_length, 140u);
  EXPECT_EQ(pdu.user_data.size(), 140u);
  EXPECT_EQ(pdu.user_data[0], 0x04);
  EXPECT_EQ(pdu.user_data[139], 0x16);
}

TEST(SubmitMessage, Of71CyrillicCharactersIsTwoParts) {
  const SMSSubmit message = Submit(Cyrillic(71));
  ASSERT_EQ(message.pdus.size(), 2u);
  const Fields first(message.pdus[0]);
  EXPECT_EQ(first.first_octet, 0x41u);
  EXPECT_EQ(first.coding_scheme, 0x08u);
  EXPECT_EQ(first.user_data_length, 140u);
  EXPECT_EQ(first.user_data.size(), 140u);
  const Octets header(first.user_data.begin(), first.user_data.begin() + 6);
  EXPECT_EQ(header, (Octets{0x05, 0x00, 0x03, message._refNumber, 0x02, 0x01}));
  const Fields second(message.pdus[1]);
  EXPECT_EQ(second.first_octet, 0x41u);
  EXPECT_EQ(second.user_data_length, 14u);
  EXPECT_EQ(second.user_data, (Octets{0x05, 0x00, 0x03, message._refNumber, 0x02, 0x02, 0x04, 0x16,
                                      0x04, 0x16, 0x04, 0x16, 0x04, 0x16}));
}

TEST(SubmitMessage, InUcs2IsOnePduUpTo70UnitsAndPartsOf67AboveThat) {
  for (std::size_t units = 1; units <= 1999; ++units) {
    const SMSSubmit message = Submit(Cyrillic(units));
    const std::size_t expected = units <= 70 ? 1 : (units + 66) / 67;
    ASSERT_EQ(message.pdus.size(), expected) << units;
    std::size_t sum = 0;
    for (const Octets& octets : message.pdus) {
      const Fields pdu(octets);
      EXPECT_EQ(pdu.user_data_length, pdu.user_data.size());
      EXPECT_LE(octets.size(), 156u);
      sum += (pdu.user_data.size() - (units > 70 ? 6 : 0)) / 2;
    }
    EXPECT_EQ(sum, units);
  }
}

TEST(SubmitMessage, Of160PlainCharactersIsThreeUcs2Parts) {
  const SMSSubmit message = Submit(std::string(160, 'x'));
  ASSERT_EQ(message.pdus.size(), 3u);
  const std::size_t characters[] = {67, 67, 26};
  for (std::size_t part = 0; part < 3; ++part) {
    const Fields pdu(message.pdus[part]);
    EXPECT_EQ(pdu.coding_scheme, 0x08u);
    EXPECT_EQ(pdu.user_data.size(), 6 + 2 * characters[part]);
    EXPECT_EQ(pdu.user_data_length, 6 + 2 * characters[part]);
    EXPECT_EQ(pdu.user_data[4], 3);
    EXPECT_EQ(pdu.user_data[5], part + 1);
  }
}

TEST(SubmitMessage, Of100PlainCharactersIsTwoIdenticalSeptetPdus) {
  const SMSSubmit message = Submit(std::string(100, 'x'));
  ASSERT_EQ(message.pdus.size(), 2u);
  EXPECT_EQ(message.pdus[0], message.pdus[1]);
  const Fields pdu(message.pdus[0]);
  EXPECT_EQ(pdu.first_octet, 0x41u);
  EXPECT_EQ(pdu.coding_scheme, 0x00u);
  EXPECT_EQ(pdu.user_data_length, 100u);
  EXPECT_EQ(pdu.user_data, test_support::Pack(std::string(100, 'x')));
}

TEST(SubmitMessage, InSeptetsIsRepeatedFrom68CharactersOn) {
  for (std::size_t length = 1; length <= 140; ++length) {
    const std::string text(length, 'a');
    const SMSSubmit message = Submit(text);
    ASSERT_EQ(message.pdus.size(), length <= 67 ? 1u : length <= 134 ? 2u : 3u) << length;
    for (const Octets& octets : message.pdus) {
      const Fields pdu(octets);
      EXPECT_EQ(pdu.first_octet, length <= 70 ? 0x01u : 0x41u);
      EXPECT_EQ(pdu.coding_scheme, 0x00u);
      EXPECT_EQ(pdu.user_data_length, length);
      EXPECT_EQ(pdu.user_data.size(), length - length / 8);
    }
  }
}

TEST(SubmitMessage, PacksEveryCharacterWithItsOwnValue) {
  for (int first = 0; first < 128; ++first) {
    std::string text;
    for (int i = 0; i < 9; ++i) text += static_cast<char>((first + i * 37) % 128);
    const SMSSubmit message = Submit(text);
    EXPECT_EQ(Fields(message.pdus.at(0)).user_data, test_support::Pack(text));
  }
}

TEST(SubmitMessage, Of141PlainCharactersIsUcs2) {
  EXPECT_EQ(Fields(Submit(std::string(141, 'a')).pdus.at(0)).coding_scheme, 0x08u);
}

TEST(SubmitMessage, WithOneCharacterThatIsNotAsciiIsUcs2) {
  const Fields pdu(Submit("Gr\xC3\xBC\xC3\x9F"
                          "e")
                       .pdus.at(0));
  EXPECT_EQ(pdu.coding_scheme, 0x08u);
  EXPECT_EQ(pdu.user_data, (Octets{0x00, 'G', 0x00, 'r', 0x00, 0xFC, 0x00, 0xDF, 0x00, 'e'}));
  EXPECT_EQ(pdu.user_data_length, 10u);
}

TEST(SubmitMessage, SplitsWithoutRegardToSurrogatePairs) {
  std::string text(66, 'a');
  text += "\xF0\x9F\x98\x80";  // U+1F600: units 67 and 68
  text += std::string(10, 'b');
  const SMSSubmit message = Submit(text);
  ASSERT_EQ(message.pdus.size(), 2u);
  EXPECT_EQ(Fields(message.pdus[0]).user_data.at(138), 0xD8);
  EXPECT_EQ(Fields(message.pdus[1]).user_data.at(6), 0xDE);
}

TEST(SubmitMessage, WithoutANumberIsRefused) {
  SMSSubmit message;
  EXPECT_EQ(message.encode("Hello", ""), 12);
  EXPECT_EQ(message.status, 0);
  EXPECT_TRUE(message.pdus.empty());
}

TEST(SubmitMessage, WithoutATextHasNoPdu) {
  SMSSubmit message;
  EXPECT_EQ(message.encode("", kNumber), 0);
  EXPECT_TRUE(message.pdus.empty());
}

TEST(SubmitMessage, OfInvalidUtf8IsRefused) {
  for (const std::string text :
       {"\xFF", "abc\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80"}) {
    SMSSubmit message;
    EXPECT_EQ(message.encode(text, kNumber), 11);
    EXPECT_EQ(message.status, 11);
    EXPECT_TRUE(message.pdus.empty());
  }
}

TEST(SubmitMessage, OfTwoThousandUnitsOrMoreIsRefused) {
  EXPECT_EQ(Submit(std::string(1999, 'x')).pdus.size(), 30u);
  for (const std::size_t length : {2000u, 2001u, 5000u, 1'000'000u}) {
    SMSSubmit message;
    EXPECT_EQ(message.encode(std::string(length, 'x'), kNumber), 11) << length;
    EXPECT_EQ(message.encode(Cyrillic(length), kNumber), 11) << length;
    EXPECT_TRUE(message.pdus.empty());
  }
}

TEST(SubmitMessage, ThatFailedOnceKeepsItsStatus) {
  SMSSubmit message;
  EXPECT_EQ(message.encode("\xFF", kNumber), 11);
  EXPECT_EQ(message.encode("Hello", kNumber), 11);
  EXPECT_EQ(message.pdus.size(), 1u);
}

TEST(SubmitMessage, EncodedAgainAppendsItsPdusAndReadsNothingBeyondItsText) {
  SMSSubmit message = Submit(Cyrillic(71));
  EXPECT_EQ(message.encode(Cyrillic(140), kNumber), 0);
  ASSERT_EQ(message.pdus.size(), 5u);
  EXPECT_EQ(Fields(message.pdus[2]).user_data.size(), 6u + 2 * 6);  // part 3 of 3
  EXPECT_EQ(Fields(message.pdus[3]).user_data.size(), 6u);
  EXPECT_EQ(Fields(message.pdus[4]).user_data.size(), 6u);
}

TEST(SubmitMessage, WithANulInItsTextKeepsIt) {
  const SMSSubmit message = Submit(std::string("a\0b", 3));
  EXPECT_EQ(Fields(message.pdus.at(0)).user_data, test_support::Pack(std::string("a\0b", 3)));
}

TEST(SubmitMessage, ToAVeryLongNumberKeepsTheLowByteOfItsLength) {
  const SMSSubmit message = Submit("Hello", std::string(300, '1'));
  EXPECT_EQ(message.pdus.at(0).at(3), 300 & 0xFF);
  EXPECT_EQ(message.pdus.at(0).size(), 5u + 150 + 3 + 5);
}

TEST(SubmitMessage, TracesEachPart) {
  test_support::TakeLog();
  SMSSubmit::smsID = 17;
  Submit(Cyrillic(71));
  const std::vector<std::string> log = test_support::TakeLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0],
            "debug FragmentedSMS messageLen=71 _refNumber=17 _totalNumber=2 _curNumber=1 "
            "messagePos=0 outputLength=67 (addins/corvane_fb_lib/sms:312)");
  EXPECT_EQ(log[1],
            "debug FragmentedSMS messageLen=71 _refNumber=17 _totalNumber=2 _curNumber=2 "
            "messagePos=134 outputLength=4 (addins/corvane_fb_lib/sms:312)");
}

TEST(SubmitMessage, OfAnyOctetsToAnyNumberIsEncodedOrRefusedWithoutHarm) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> octet(0, 0xFF);
  std::uniform_int_distribution<std::size_t> length(0, 300);
  for (int i = 0; i < 20'000; ++i) {
    std::string text(length(random), ' ');
    std::string number(length(random) / 10, ' ');
    const int mask = i % 2 == 0 ? 0xFF : 0x7F;
    for (char& character : text) character = static_cast<char>(octet(random) & mask);
    for (char& character : number) character = static_cast<char>(octet(random));
    SMSSubmit message;
    const int result = message.encode(text, number);
    EXPECT_TRUE(result == 0 || result == 11 || result == 12);
  }
}

}  // namespace
