// SPDX-License-Identifier: MIT
// Our SMS codec compared with libgammu on generated messages, wherever the codec is meant to behave
// as the standard says.
#include <gtest/gtest.h>

#include <random>

#include "addins/corvane_fb_lib/sms_delivered.h"
#include "addins/corvane_fb_lib/sms_submit.h"
#include "share/file_time.h"
#include "tests/support/deliver_pdu.h"
#include "tests/support/gammu_codec.h"

namespace {

using test_support::DeliverPdu;
using test_support::GammuMessage;
using test_support::GammuUserData;
using test_support::Octets;

constexpr int kReceived = 12'000;
constexpr int kSent = 6'000;  // in each alphabet

/// Characters with the same code in ASCII and in the default alphabet.
const std::string kCommon =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 \n\r!\"#%&'()*+,-./:;<=>?";

class Generator {
 public:
  int Below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random_); }
  char Of(const std::string& characters) {
    return characters[static_cast<std::size_t>(Below(static_cast<int>(characters.size())))];
  }
  std::string Digits(int count) {
    std::string digits;
    while (count-- > 0) digits += Of("0123456789");
    return digits;
  }
  std::string CommonText(int length) {
    std::string text;
    while (length-- > 0) text += Of(kCommon);
    return text;
  }
  /// A code unit that is a character by itself, from several scripts; not a tilde, which libgammu
  /// doubles.
  int Unit() {
    static const std::pair<int, int> kRanges[] = {
        {0x20, 0x7E}, {0xA0, 0x250}, {0x391, 0x3CA}, {0x400, 0x460}, {0x4E00, 0x9FA0}};
    const auto [begin, end] = kRanges[Below(5)];
    return begin + Below(end - begin);
  }
  unsigned char SwappedDigits(int value) {
    return static_cast<unsigned char>(value % 10 << 4 | value / 10);
  }

 private:
  std::mt19937 random_{20241105};
};

std::string Utf8(const std::vector<int>& units) {
  std::string text;
  for (const int unit : units) {
    if (unit < 0x80) {
      text += static_cast<char>(unit);
    } else if (unit < 0x800) {
      text += static_cast<char>(0xC0 | unit >> 6);
      text += static_cast<char>(0x80 | (unit & 0x3F));
    } else {
      text += static_cast<char>(0xE0 | unit >> 12);
      text += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
      text += static_cast<char>(0x80 | (unit & 0x3F));
    }
  }
  return text;
}

Octets SemiOctets(const std::string& digits) {
  Octets octets;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = i + 1 < digits.size() ? digits[i + 1] - '0' : 0xF;
    octets.push_back(static_cast<unsigned char>(high << 4 | (digits[i] - '0')));
  }
  return octets;
}

/// An address of one of the kinds that are read as the standard says.
void ChooseAddress(Generator& any, DeliverPdu& pdu) {
  const int kind = any.Below(3);
  if (kind == 2) {  // a name of at most six characters
    std::string name;
    for (int left = 1 + any.Below(6); left > 0; --left) name += any.Of("ABCDEFGHIJKLMnopqrstuvw");
    pdu.address_type = 0xD0;
    pdu.address_length = static_cast<unsigned char>((name.size() * 7 + 3) / 4);
    pdu.address = test_support::Pack(name);
    return;
  }
  // International numbers with an odd number of digits, national ones with an even number.
  const std::string digits =
      any.Digits(kind == 0 ? 2 * (2 + any.Below(6)) + 1 : 2 * (1 + any.Below(7)));
  pdu.address_type = kind == 0 ? 0x91 : 0x81;
  pdu.address_length = static_cast<unsigned char>(digits.size());
  pdu.address = SemiOctets(digits);
}

void ChooseTime(Generator& any, DeliverPdu& pdu) {
  pdu.time_stamp = {any.SwappedDigits(any.Below(90)),  // libgammu reads 90 to 99 as 2080 to 2089
                    any.SwappedDigits(1 + any.Below(12)),
                    any.SwappedDigits(1 + any.Below(28)),
                    any.SwappedDigits(any.Below(24)),
                    any.SwappedDigits(any.Below(60)),
                    any.SwappedDigits(any.Below(60)),
                    static_cast<unsigned char>(any.Below(4) * 4 << 4 & 0xF0)};
}

void ChooseText(Generator& any, DeliverPdu& pdu) {
  if (any.Below(2) == 0) {
    int length = any.Below(161);
    if (length % 8 == 7) --length;  // we add a NUL there
    const std::string text = any.CommonText(length);
    pdu.user_data = test_support::Pack(text);
    pdu.user_data_length = static_cast<unsigned char>(length);
    return;
  }
  pdu.coding_scheme = 0x08;
  pdu.user_data.clear();
  if (any.Below(2) == 0) {
    const int total = 2 + any.Below(8);
    pdu.first_octet |= 0x40;
    pdu.user_data = {0x05,
                     0x00,
                     0x03,
                     static_cast<unsigned char>(any.Below(256)),
                     static_cast<unsigned char>(total),
                     static_cast<unsigned char>(1 + any.Below(total))};
  }
  for (int left = 1 + any.Below(67); left > 0; --left) {
    const int unit = any.Unit();
    pdu.user_data.push_back(static_cast<unsigned char>(unit >> 8));
    pdu.user_data.push_back(static_cast<unsigned char>(unit & 0xFF));
  }
  pdu.user_data_length = static_cast<unsigned char>(pdu.user_data.size());
}

std::int64_t FileTime(const GammuMessage& message) {
  const auto field = [](int value) { return static_cast<std::uint16_t>(value); };
  const RTime time{field(message.year),
                   field(message.month),
                   field(message.day),
                   field(message.hour),
                   field(message.minute),
                   field(message.second),
                   0};
  return RTimeToFileTime(&time);
}

TEST(AgainstLibgammu, ReceivedMessagesAreDecodedAlike) {
  Generator any;
  for (int i = 0; i < kReceived; ++i) {
    DeliverPdu pdu;
    ChooseAddress(any, pdu);
    ChooseTime(any, pdu);
    ChooseText(any, pdu);
    const Octets octets = pdu.ToOctets();
    SCOPED_TRACE(test_support::Hex(octets));
    const GammuMessage expected = test_support::GammuDecode(octets);
    ASSERT_TRUE(expected.decoded);
    sms::SMSDelivered message(0);
    message.decode(octets);
    ASSERT_EQ(message.status, 0);
    ASSERT_EQ(message.number, expected.number);
    ASSERT_EQ(message.text, expected.text);
    ASSERT_EQ(message.time, FileTime(expected));
    ASSERT_EQ(message.ref, expected.ref);
    ASSERT_EQ(message.total, expected.total);
    ASSERT_EQ(message.seq, expected.seq);
  }
}

/// Decodes with libgammu what we have encoded, and joins it.
std::string TextOf(const sms::SMSSubmit& message, const std::string& number) {
  std::string text;
  int seq = 0;
  const int total = static_cast<int>(message.pdus.size());
  for (const Octets& pdu : message.pdus) {
    const GammuMessage part = test_support::GammuDecode(pdu);
    EXPECT_TRUE(part.decoded);
    EXPECT_EQ(part.number, "+" + number);
    EXPECT_EQ(part.total, total > 1 ? total : 0);
    EXPECT_EQ(part.seq, total > 1 ? ++seq : 0);
    EXPECT_EQ(part.ref, total > 1 ? message._refNumber : 0);
    text += part.text;
  }
  return text;
}

/// The user data of one of our PDUs, for a number of this length.
GammuUserData UserData(const Octets& pdu, std::size_t number_length) {
  const auto at = static_cast<std::ptrdiff_t>(5 + (number_length + 1) / 2 + 2);
  return {pdu.at(static_cast<std::size_t>(at)), {pdu.begin() + at + 1, pdu.end()}};
}

TEST(AgainstLibgammu, SentMessagesInSeptetsAreEncodedAlike) {
  Generator any;
  for (int i = 0; i < kSent; ++i) {
    const std::string text = any.CommonText(1 + any.Below(67));
    const std::string number = any.Digits(4 + any.Below(12));
    sms::SMSSubmit message;
    ASSERT_EQ(message.encode(text, number), 0);
    ASSERT_EQ(message.pdus.size(), 1u);
    SCOPED_TRACE(test_support::Hex(message.pdus[0]));
    ASSERT_EQ(TextOf(message, number), text);
    const auto expected = test_support::GammuEncode(text, number, false);
    const GammuUserData actual = UserData(message.pdus[0], number.size());
    ASSERT_EQ(expected.size(), 1u);
    ASSERT_EQ(actual.length, expected[0].length);
    ASSERT_EQ(actual.octets, expected[0].octets);
  }
}

TEST(AgainstLibgammu, SentMessagesInUcs2AreEncodedAndSplitAlike) {
  Generator any;
  for (int i = 0; i < kSent; ++i) {
    std::vector<int> units = {0x416};  // so that it is UCS-2 in any case
    for (int left = any.Below(i % 3 == 0 ? 400 : 70); left > 0; --left) units.push_back(any.Unit());
    const std::string text = Utf8(units);
    const std::string number = any.Digits(4 + any.Below(12));
    sms::SMSSubmit message;
    ASSERT_EQ(message.encode(text, number), 0);
    SCOPED_TRACE(test_support::Hex(message.pdus[0]));
    ASSERT_EQ(TextOf(message, number), text);
    const auto expected = test_support::GammuEncode(text, number, true);
    ASSERT_EQ(message.pdus.size(), expected.size());
    for (std::size_t part = 0; part < expected.size(); ++part) {
      GammuUserData actual = UserData(message.pdus[part], number.size());
      ASSERT_EQ(actual.length, expected[part].length);
      if (expected.size() > 1) actual.octets[3] = expected[part].octets.at(3);  // the reference
      ASSERT_EQ(actual.octets, expected[part].octets);
    }
  }
}

}  // namespace
