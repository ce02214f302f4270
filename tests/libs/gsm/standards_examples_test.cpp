// SPDX-License-Identifier: MIT
// What the standards themselves lay down bit by bit, as tables, in both directions. The octets are
// worked out by hand from the clause that each row names: from its figure, its rule or its coding
// table. None is the output of a program, and none is copied from a document.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "libs/gsm/address.h"
#include "libs/gsm/data_coding.h"
#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/octet_reader.h"
#include "libs/gsm/pdu.h"
#include "libs/gsm/septets.h"
#include "libs/gsm/seven_bit_text.h"
#include "libs/gsm/time_stamp.h"
#include "libs/gsm/user_data_header.h"

namespace gsm {
namespace {

Octets ExampleOctets(const std::string& hexadecimal) {
  return FromHexadecimal(hexadecimal).value();
}

struct TextRow {
  const char* clause;
  Octets septets;
  unsigned fill_bits;
  const char* packed;
};

// 3GPP TS 23.038 clause 6.1.2.1.1: character n + 1 begins in the bits that character n leaves.
// Clause 6.1.2.1 with 3GPP TS 23.040 clause 9.2.3.24: after a header, fill bits come first.
TEST(StandardsExamples, SeptetsArePacked) {
  const TextRow rows[] = {
      {"23.038 6.1.2.1.1, one character, a bit of 0 after it", {0x41}, 0, "41"},
      {"two characters", {0x7F, 0x00}, 0, "7F00"},
      {"two characters, the second begins in bit 7", {0x00, 0x7F}, 0, "803F"},
      {"seven characters leave seven bits", {1, 2, 3, 4, 5, 6, 7}, 0, "01C18050301C00"},
      {"eight characters fill seven octets", {1, 2, 3, 4, 5, 6, 7, 8}, 0, "01C18050301C10"},
      {"6.1.2.3.1, the CR that pads seven characters (USSD)",
       {0x31, 0x31, 0x31, 0x31, 0x31, 0x31, 0x31, 0x0D},
       0,
       "B1582C168BC51A"},
      {"23.040 9.2.3.24, one fill bit after a header of six octets", {0x41}, 1, "82"},
      {"23.040 9.2.3.24, six fill bits", {0x41}, 6, "4010"},
  };
  for (const TextRow& row : rows) {
    EXPECT_EQ(ToHexadecimal(PackSeptets(row.septets, row.fill_bits)), row.packed) << row.clause;
    EXPECT_EQ(UnpackSeptets(ExampleOctets(row.packed), row.septets.size(), row.fill_bits),
              row.septets)
        << row.clause;
  }
}

// 3GPP TS 23.038 clauses 6.2.1 and 6.2.1.1: places of the two tables.
TEST(StandardsExamples, CharactersAreWhereTheTablesHaveThem) {
  const struct {
    char32_t character;
    const char* septets;
    const char* utf8;
  } rows[] = {
      {U'@', "00", "@"},   {U'$', "02", "$"},     {U'Δ', "10", "Δ"},   {U'_', "11", "_"},
      {U'Ξ', "1A", "Ξ"},   {U'É', "1F", "É"},     {U' ', "20", " "},   {U'¤', "24", "¤"},
      {U'¡', "40", "¡"},   {U'Ä', "5B", "Ä"},     {U'§', "5F", "§"},   {U'¿', "60", "¿"},
      {U'à', "7F", "à"},   {U'\f', "1B0A", "\f"}, {U'^', "1B14", "^"}, {U'{', "1B28", "{"},
      {U'}', "1B29", "}"}, {U'\\', "1B2F", "\\"}, {U'[', "1B3C", "["}, {U'~', "1B3D", "~"},
      {U']', "1B3E", "]"}, {U'|', "1B40", "|"},   {U'€', "1B65", "€"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(EncodeDefaultAlphabet(row.character), ExampleOctets(row.septets)) << row.utf8;
    EXPECT_EQ(DecodeSeptets(ExampleOctets(row.septets)), row.utf8);
  }
}

// 3GPP TS 23.040 clause 9.1.2.5 (length in semi-octets, type, value; filled with F) and 9.1.2.3.
TEST(StandardsExamples, AddressesAreSwappedSemiOctets) {
  const struct {
    const char* clause;
    const char* address;
    const char* octets;
  } rows[] = {
      {"9.1.2.5, even, international", "+1234567890", "0A912143658709"},
      {"9.1.2.5, odd, filled", "+123456789", "099121436587F9"},
      {"9.1.2.5, type unknown", "110", "038111F0"},
      {"9.1.2.5, * # a b c are 1010 to 1110", "*#abc", "0581BADCFE"},
      {"9.1.2.5, alphanumeric: seven semi-octets and a half for four characters", "Abcd",
       "07D041F1980C"},
  };
  for (const auto& row : rows) {
    const Octets octets = ExampleOctets(row.octets);
    OctetReader in(octets);
    EXPECT_EQ(ReadAddress(in), row.address) << row.clause;
    in.ExpectEnd();
    EXPECT_EQ(in.error(), PduError::kNone) << row.clause;
    Octets written;
    WriteAddress(row.address, written);
    EXPECT_EQ(ToHexadecimal(written), row.octets) << row.clause;
  }
}

// 3GPP TS 23.040 clause 9.2.3.11: swapped digits; the zone in quarters of an hour, its sign in
// bit 3 of the first semi-octet.
TEST(StandardsExamples, TimeStampsHaveSwappedDigits) {
  const struct {
    const char* octets;
    const char* time;
  } rows[] = {
      {"99309251619580", "2099-03-29T15:16:59+02:00"},
      {"62112221000000", "2026-11-22T12:00:00+00:00"},
      {"62112221000040", "2026-11-22T12:00:00+01:00"},
      {"6211222100004A", "2026-11-22T12:00:00-06:00"},
      {"62112221000022", "2026-11-22T12:00:00+05:30"},
  };
  for (const auto& row : rows) {
    const Octets octets = ExampleOctets(row.octets);
    OctetReader in(octets);
    const TimeStamp time = ReadTimeStamp(in);
    EXPECT_EQ(in.error(), PduError::kNone) << row.octets;
    EXPECT_EQ(FormatTimeStamp(time), row.time);
    Octets written;
    WriteTimeStamp(time, written);
    EXPECT_EQ(ToHexadecimal(written), row.octets);
  }
}

// 3GPP TS 23.040 clauses 9.2.3.24.1, .3, .4, .8, .15, .16: each element alone, in a header.
TEST(StandardsExamples, HeadersHoldTheirElements) {
  UserDataHeader narrow, wide, ports8, ports16, single, locking;
  narrow.concatenation = Concatenation{0xA5, 3, 2, false};
  wide.concatenation = Concatenation{0x1234, 255, 1, true};
  ports8.ports = Ports{0xF0, 0xF1, false};
  ports16.ports = Ports{0x0B84, 0x23F0, true};
  single.shifts.single = Language::kTurkish;
  locking.shifts.locking = Language::kPortuguese;
  const struct {
    const char* clause;
    const UserDataHeader& header;
    const char* octets;
  } rows[] = {
      {"9.2.3.24.1", narrow, "050003A50302"}, {"9.2.3.24.8", wide, "0608041234FF01"},
      {"9.2.3.24.3", ports8, "040402F0F1"},   {"9.2.3.24.4", ports16, "0605040B8423F0"},
      {"9.2.3.24.15", single, "03240101"},    {"9.2.3.24.16", locking, "03250103"},
  };
  for (const auto& row : rows) {
    const Octets octets = ExampleOctets(row.octets);
    EXPECT_EQ(ReadHeader(OctetSpan(octets).subspan(1)), row.header) << row.clause;
    EXPECT_EQ(ToHexadecimal(WriteHeader(row.header)), row.octets) << row.clause;
  }
}

// 3GPP TS 23.040 clause 9.2.3.12.1: (VP + 1) * 5 min; 12 h + (VP - 143) * 30 min; (VP - 166) days;
// (VP - 192) weeks.
TEST(StandardsExamples, ValidityPeriodsHaveTheirSteps) {
  using std::chrono::minutes;
  const struct {
    int value;
    minutes time;
  } rows[] = {{0, minutes(5)},           {143, minutes(720)},       {144, minutes(750)},
              {167, minutes(1440)},      {168, minutes(2 * 1440)},  {196, minutes(30 * 1440)},
              {197, minutes(35 * 1440)}, {255, minutes(63 * 10080)}};
  for (const auto& row : rows) EXPECT_EQ(RelativeValidity(row.time), row.value);
}

}  // namespace
}  // namespace gsm
