// SPDX-License-Identifier: MIT
#include "libs/gsm/user_data_header.h"

#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

std::optional<UserDataHeader> Read(std::string_view digits) {
  return ReadHeader(FromHexadecimal(digits).value());
}

TEST(UserDataHeader, ReadsEachElement) {
  EXPECT_EQ(Read("0003070201")->concatenation, (Concatenation{7, 2, 1, false}));
  EXPECT_EQ(Read("080412340302")->concatenation, (Concatenation{0x1234, 3, 2, true}));
  EXPECT_EQ(Read("0402F5F6")->ports, (Ports{0xF5, 0xF6, false}));
  EXPECT_EQ(Read("05041234158A")->ports, (Ports{0x1234, 0x158A, true}));
  EXPECT_EQ(Read("240101250103")->shifts, (Shifts{Language::kPortuguese, Language::kTurkish}));
}

TEST(UserDataHeader, SkipsUnknownElementsAndThoseOfTheWrongLength) {
  EXPECT_EQ(Read("70020102"
                 "0003070201"
                 "7F00")
                ->concatenation,
            (Concatenation{7, 2, 1, false}));
  EXPECT_EQ(Read("000107"
                 "0401F5"
                 "05020102"
                 "08020102"
                 "2400"
                 "25020101"),
            UserDataHeader{});
  EXPECT_EQ(Read(""), UserDataHeader{});
}

TEST(UserDataHeader, UsesTheLastOfAnElementThatIsGivenTwice) {
  EXPECT_EQ(Read("0003070201"
                 "0003080302")
                ->concatenation,
            (Concatenation{8, 3, 2, false}));
}

TEST(UserDataHeader, IgnoresAPartNumberThatMakesNoSense) {
  for (const char* digits : {"0003010001", "0003010200", "0003010203", "080400010000"}) {
    EXPECT_EQ(Read(digits)->concatenation, std::nullopt) << digits;
  }
}

TEST(UserDataHeader, IsIgnoredIfItsElementsDoNotFillIt) {
  for (const char* digits : {"00", "0003", "00030702", "000307020100",
                             "0003070201"
                             "05"}) {
    EXPECT_EQ(Read(digits), std::nullopt) << digits;
  }
}

TEST(UserDataHeader, RoundTripsWhole) {
  UserDataHeader header;
  EXPECT_TRUE(WriteHeader(header).empty());
  for (const bool wide : {false, true}) {
    header.concatenation = Concatenation{0x12, 3, 2, wide};
    header.ports = Ports{0x15, 0x16, wide};
    header.shifts = {Language::kUrdu, Language::kSpanish};
    const Octets octets = WriteHeader(header);
    ASSERT_EQ(octets[0] + 1U, octets.size());
    EXPECT_EQ(ReadHeader(OctetSpan(octets).subspan(1)), header);
  }
}

}  // namespace
}  // namespace gsm
