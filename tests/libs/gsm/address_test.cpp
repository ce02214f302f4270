// SPDX-License-Identifier: MIT
#include "libs/gsm/address.h"

#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

std::string Written(const Address& address) {
  Octets octets;
  WriteAddress(address, octets);
  return ToHexadecimal(octets);
}

Address AddressOf(std::string_view digits, PduError expected = PduError::kNone) {
  const Octets octets = FromHexadecimal(digits).value();
  OctetReader in(octets);
  Address address = ReadAddress(in);
  in.ExpectEnd();
  EXPECT_EQ(in.error(), expected) << digits;
  return address;
}

TEST(Address, CountsSemiOctetsAndFillsAnOddNumber) {
  EXPECT_EQ(Written("+15550101234"), "0B915155101032F4");
  EXPECT_EQ(AddressOf("0B915155101032F4"), "+15550101234");
  EXPECT_EQ(Written("4040"), "04810404");
}

TEST(Address, HoldsAnAlphanumericSender) {
  EXPECT_EQ(AddressOf("0DD0E474D81C0EBB01"), "diafaan");
  EXPECT_EQ(Written("diafaan"), "0DD0E474D81C0EBB01");
}

TEST(Address, HoldsTheSignsOfATelephone) {
  EXPECT_EQ(Written("*100#"),
            "0581"
            "1A00FB");
  EXPECT_EQ(AddressOf("05811A00FB"), "*100#");
}

TEST(Address, EveryLengthRoundTrips) {
  std::string digits;
  std::string letters;
  for (int length = 1; length <= 20; ++length) {
    digits += static_cast<char>('0' + length % 10);
    EXPECT_EQ(AddressOf(Written(digits)), digits);
    EXPECT_EQ(AddressOf(Written("+" + digits)), "+" + digits);
    if (length > 11) continue;
    letters += 'M';
    EXPECT_EQ(AddressOf(Written(letters)), letters);
  }
  EXPECT_FALSE(IsAddress(digits + "1"));
  EXPECT_FALSE(IsAddress("Twelve chars"));
  EXPECT_FALSE(IsAddress(""));
  EXPECT_FALSE(IsAddress("+"));
  EXPECT_FALSE(IsAddress("Ж"));
  EXPECT_FALSE(IsAddress("\xFF"));
}

TEST(Address, MayBeEmpty) {
  EXPECT_EQ(AddressOf("0081"), "");
}

TEST(Address, IsRefusedWithAFillerInTheMiddle) {
  AddressOf("0481F112", PduError::kBadDigit);
  AddressOf("04811F12", PduError::kBadDigit);
}

TEST(Address, IsRefusedWhenTooLongOrTruncated) {
  AddressOf("15811111111111111111111111", PduError::kBadLength);
  AddressOf("0B91515510", PduError::kTruncated);
}

TEST(ServiceCentre, CountsOctetsWithTheType) {
  const Octets octets = FromHexadecimal("07915155000000F0").value();
  OctetReader in(octets);
  EXPECT_EQ(ReadServiceCentre(in), "+15550000000");
  Octets written;
  WriteServiceCentre("+15550000000", written);
  EXPECT_EQ(written, octets);
}

TEST(ServiceCentre, MayBeMissing) {
  const Octets none{0};
  OctetReader in(none);
  EXPECT_EQ(ReadServiceCentre(in), "");
  Octets written;
  WriteServiceCentre("", written);
  EXPECT_EQ(written, none);
}

}  // namespace
}  // namespace gsm
