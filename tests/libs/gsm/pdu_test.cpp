// SPDX-License-Identifier: MIT
// Messages that other programs made, and what decoding them must return.
#include "libs/gsm/pdu.h"

#include <gtest/gtest.h>

#include <random>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

Octets Bytes(std::string_view digits) {
  return FromHexadecimal(digits).value();
}

SubmitPdu Submitted(std::string_view digits) {
  SubmitPdu pdu;
  const PduResult result = DecodeSubmit(Bytes(digits), pdu);
  EXPECT_TRUE(result) << Describe(result.error) << " at " << result.error_at;
  return pdu;
}

DeliverPdu Delivered(std::string_view digits) {
  DeliverPdu pdu;
  const PduResult result = DecodeDeliver(Bytes(digits), pdu);
  EXPECT_TRUE(result) << Describe(result.error) << " at " << result.error_at;
  return pdu;
}

TEST(SubmitPdu, OfGammuHasAServiceCentreAndARelativeValidity) {
  const auto pdu = Submitted("07915155000000F011000B915155101032F40000FF05E8329BFD06");
  EXPECT_EQ(pdu.service_centre, "+15550000000");
  EXPECT_EQ(pdu.destination, "+15550101234");
  EXPECT_EQ(pdu.validity_period, Octets{0xFF});
  EXPECT_EQ(TextOf(pdu.data), "hello");
}

TEST(SubmitPdu, OfGnokiiHasAnotherValidity) {
  const auto pdu = Submitted("07915155000000F011000B915155101032F40000AA05E8329BFD06");
  EXPECT_EQ(pdu.validity_period, Octets{0xAA});
  EXPECT_EQ(TextOf(pdu.data), "hello");
}

TEST(SubmitPdu, OfModemManagerHasNoValidity) {
  const auto pdu = Submitted("0001000B915155101032F4000005E8329BFD06");
  EXPECT_EQ(pdu.service_centre, "");
  EXPECT_TRUE(pdu.validity_period.empty());
  EXPECT_EQ(TextOf(pdu.data), "hello");
}

TEST(SubmitPdu, OfSmstoolsHasSixteenCharacters) {
  const auto pdu = Submitted("0011000B915155101032F40000FF0FE8329BFD0699E5EF3668DE9E9301");
  EXPECT_EQ(TextOf(pdu.data), "hello from smsd");
}

TEST(SubmitPdu, InUcs2) {
  const auto pdu =
      Submitted("07915155000000F011000B915155101032F40008FF0E0047007200FC00DF0065002020AC");
  EXPECT_EQ(TextOf(pdu.data), "Grüße €");
}

TEST(SubmitPdu, WithTheHeaderIndicatorButNoHeaderIsShownWhole) {
  // Some senders set the indicator for long plain texts.
  const auto pdu = Submitted("0041000B915155101032F4000005E8329BFD06");
  EXPECT_TRUE(pdu.data.header_ignored);
  EXPECT_EQ(TextOf(pdu.data), "hello");
}

TEST(SubmitPdu, WithAnAbsoluteValidity) {
  const auto pdu = Submitted("0019000B915155101032F400006210131221000405E8329BFD06");
  EXPECT_EQ(pdu.validity_period.size(), 7u);
  EXPECT_EQ(TextOf(pdu.data), "hello");
}

TEST(SubmitPdu, IsNotADeliver) {
  SubmitPdu pdu;
  EXPECT_EQ(DecodeSubmit(Bytes("0000000B915155101032F4000005E8329BFD06"), pdu).error,
            PduError::kBadType);
}

TEST(SubmitPdu, IsRefusedWithOctetsLeftOver) {
  SubmitPdu pdu;
  const PduResult result = DecodeSubmit(Bytes("0001000B915155101032F4000005E8329BFD0600"), pdu);
  EXPECT_EQ(result.error, PduError::kTrailing);
  EXPECT_EQ(result.error_at, 19u);
}

TEST(SubmitPdu, IsRefusedIfCutAnywhere) {
  const Octets whole = Bytes("07915155000000F011000B915155101032F40000FF05E8329BFD06");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    SubmitPdu pdu;
    EXPECT_EQ(DecodeSubmit(OctetSpan(whole).first(length), pdu).error, PduError::kTruncated)
        << length;
  }
}

TEST(DeliverPdu, AsANetworkSendsIt) {
  const auto pdu =
      Delivered("07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07");
  EXPECT_EQ(pdu.service_centre, "+31624000000");
  EXPECT_EQ(pdu.originator, "+31641600986");
  EXPECT_EQ(pdu.time, (TimeStamp{2002, 8, 26, 19, 37, 41, 0}));
  EXPECT_EQ(TextOf(pdu.data), "How are you?");
}

TEST(DeliverPdu, FromAnAlphanumericSender) {
  const auto pdu =
      Delivered("0791448720003023240DD0E474D81C0EBB010000111011315214000BE474D81C0EBB5DE3771B");
  EXPECT_EQ(pdu.originator, "diafaan");
  EXPECT_EQ(pdu.time, (TimeStamp{2011, 1, 11, 13, 25, 41, 0}));
  EXPECT_EQ(TextOf(pdu.data), "diafaan.com");
}

/// A message whose address, time or end is malformed is read as far as it makes sense.
struct Malformed {
  const char* digits;
  PduError error;
  std::size_t error_at;
  const char* originator;
  bool valid_time;
};

TEST(DeliverPdu, WithAMalformedAddressOrTimeKeepsItsText) {
  const Malformed rows[] = {
      {"00040B911346610089F6000020A062917314080CC8F71D14969741F977FD07", PduError::kBadDigit, 13,
       "+31641600986", false},
      {"00040B91134F610089F60000208062917314080CC8F71D14969741F977FD07", PduError::kBadDigit, 9,
       "+31", true},
      {"000417911346610089F6112233440055000020806291731408"
       "0CC8F71D14969741F977FD07",
       PduError::kBadLength, 2, "", true},
      {"0A00112233445566778899040B911346610089F60000208062917314080CC8F71D14969741F977FD07",
       PduError::kNone, 0, "+31641600986", true},
      {"00040B911346610089F60000208062917314080CC8F71D14969741F977FD07FFFF", PduError::kTrailing,
       31, "+31641600986", true}};
  for (const Malformed& row : rows) {
    DeliverPdu pdu;
    const PduResult result = DecodeDeliver(Bytes(row.digits), pdu);
    EXPECT_EQ(result.error, row.error) << row.digits << " " << Describe(result.error);
    EXPECT_EQ(result.error_at, row.error_at) << row.digits;
    EXPECT_TRUE(result.whole) << row.digits;
    EXPECT_EQ(pdu.originator, row.originator);
    EXPECT_EQ(IsValid(pdu.time), row.valid_time) << row.digits;
    EXPECT_EQ(TextOf(pdu.data), "How are you?");
  }
}

TEST(DeliverPdu, ThatIsCutIsNotWhole) {
  const Octets whole = Bytes("00040B911346610089F60000208062917314080CC8F71D14969741F977FD07");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    DeliverPdu pdu;
    EXPECT_FALSE(DecodeDeliver(OctetSpan(whole).first(length), pdu).whole) << length;
  }
}

TEST(DeliverPdu, IsWrittenAsANetworkWritesIt) {
  const Octets octets =
      Bytes("07911326040000F0040B911346610089F60000208062917314000CC8F71D14969741F977FD07");
  EXPECT_EQ(EncodeDeliver(Delivered(ToHexadecimal(octets))), octets);
}

TEST(DeliverPdu, RoundTripsWithEveryAlphabetAndPartNumber) {
  for (const bool wide : {false, true}) {
    for (const std::string_view text : {"plain", "Grüße €", "Жук", "😀"}) {
      const std::string long_text = [text] {
        std::string all;
        while (all.size() < 500) all += text;
        return all;
      }();
      std::vector<UserData> data;
      const auto parts = SplitText(long_text, {700, wide}).value();
      for (const UserData& part : parts) {
        const DeliverPdu sent{"+491710000000", "Pump", 0, 0, {2026, 1, 31, 12, 0, 0, -90}, part};
        const DeliverPdu read = Delivered(ToHexadecimal(EncodeDeliver(sent)));
        EXPECT_EQ(read.service_centre, sent.service_centre);
        EXPECT_EQ(read.originator, sent.originator);
        EXPECT_EQ(read.time, sent.time);
        EXPECT_EQ(read.data.header.concatenation, part.header.concatenation);
        data.push_back(read.data);
      }
      EXPECT_EQ(TextOf(data), long_text);
    }
  }
}

TEST(SubmitPdu, RoundTripsWithAllItsOptions) {
  for (const Octets& validity :
       {Octets{}, Octets{0xA7}, Octets{0x62, 0x10, 0x13, 0x12, 0x21, 0, 4}}) {
    const auto parts = SplitText("Grüße €" + std::string(200, 'x'), {9, true}).value();
    for (const UserData& part : parts) {
      const SubmitPdu sent{"+491710000000", 7,    "*100#", 0x40, DataCodingScheme(part.alphabet, 0),
                           validity,        true, part};
      const SubmitPdu read = Submitted(ToHexadecimal(EncodeSubmit(sent)));
      EXPECT_EQ(read.service_centre, sent.service_centre);
      EXPECT_EQ(read.message_reference, 7);
      EXPECT_EQ(read.destination, "*100#");
      EXPECT_EQ(read.protocol_identifier, 0x40);
      EXPECT_EQ(read.data_coding_scheme, sent.data_coding_scheme);
      EXPECT_EQ(read.validity_period, validity);
      EXPECT_TRUE(read.status_report_requested);
      EXPECT_EQ(read.data.header, part.header);
      EXPECT_EQ(read.data.payload, part.payload);
    }
  }
}

TEST(SubmitPdu, IsWrittenAsOtherProgramsWriteIt) {
  for (const char* digits : {"07915155000000F011000B915155101032F40000FF05E8329BFD06",
                             "0001000B915155101032F4000005E8329BFD06",
                             "0019000B915155101032F400006210131221000405E8329BFD06"}) {
    EXPECT_EQ(ToHexadecimal(EncodeSubmit(Submitted(digits))), digits);
  }
}

TEST(StatusReport, RoundTrips) {
  for (const int status : {0x00, 0x30, 0x46}) {
    const StatusReportPdu sent{"+491710000000",
                               200,
                               "+15550101234",
                               {2026, 1, 31, 12, 0, 0, 60},
                               {2026, 1, 31, 12, 0, 3, 60},
                               static_cast<std::uint8_t>(status)};
    StatusReportPdu read;
    EXPECT_TRUE(DecodeStatusReport(EncodeStatusReport(sent), read));
    EXPECT_EQ(read, sent);
  }
}

TEST(StatusReport, IsReadWithOptionalParametersAndRefusedIfCutAnywhere) {
  const Octets whole = Bytes(
      "0006C80B915155101032F46210132100004062101321003040"
      "00"
      "FF00F6");
  StatusReportPdu read;
  ASSERT_TRUE(DecodeStatusReport(whole, read));
  EXPECT_EQ(read.message_reference, 200);
  EXPECT_EQ(read.recipient, "+15550101234");
  EXPECT_EQ(read.discharge_time.second, 3);
  EXPECT_EQ(OutcomeOf(read.status), Outcome::kDelivered);
  for (std::size_t length = 0; length < whole.size() - 3; ++length) {
    EXPECT_EQ(DecodeStatusReport(OctetSpan(whole).first(length), read).error, PduError::kTruncated)
        << length;
  }
}

TEST(StatusReport, IsNotADeliver) {
  StatusReportPdu read;
  EXPECT_EQ(DecodeStatusReport(Bytes("000001"), read).error, PduError::kBadType);
}

TEST(StatusReport, WithAMalformedTimeKeepsItsOutcome) {
  StatusReportPdu read;
  const auto result = DecodeStatusReport(Bytes("0006C80B915155101032F462A0132100004062101321003040"
                                               "46"),
                                         read);
  EXPECT_EQ(result.error, PduError::kBadDigit);
  EXPECT_TRUE(result.whole);
  EXPECT_FALSE(IsValid(read.time));
  EXPECT_EQ(read.status, 0x46);
}

TEST(Outcome, FollowsTheRangesOfTheStatus) {
  EXPECT_EQ(OutcomeOf(0x00), Outcome::kDelivered);
  for (const int status : {0x01, 0x02, 0x1F}) {
    EXPECT_EQ(OutcomeOf(static_cast<std::uint8_t>(status)), Outcome::kPassedOn) << status;
  }
  for (const int status : {0x20, 0x3F}) {
    EXPECT_EQ(OutcomeOf(static_cast<std::uint8_t>(status)), Outcome::kStillTrying) << status;
  }
  for (const int status : {0x40, 0x60, 0x80, 0xFF}) {
    EXPECT_EQ(OutcomeOf(static_cast<std::uint8_t>(status)), Outcome::kFailed) << status;
  }
}

TEST(TypeOfIncoming, IsGivenByTheFirstOctetAfterTheServiceCentre) {
  EXPECT_EQ(TypeOfIncoming(Bytes("0004")), IncomingType::kDeliver);
  EXPECT_EQ(TypeOfIncoming(Bytes("019106")), IncomingType::kStatusReport);
  EXPECT_EQ(TypeOfIncoming(Bytes("0001")), IncomingType::kReserved);
  EXPECT_EQ(TypeOfIncoming(Bytes("0003")), IncomingType::kReserved);
  EXPECT_EQ(TypeOfIncoming(Bytes("0491")), std::nullopt);
  EXPECT_EQ(TypeOfIncoming({}), std::nullopt);
}

TEST(RelativeValidity, IsTheShortestThatLastsLongEnough) {
  using std::chrono::days;
  using std::chrono::hours;
  using std::chrono::minutes;
  using std::chrono::weeks;
  const std::pair<minutes, int> rows[] = {
      {minutes(-5), 0}, {minutes(0), 0},      {minutes(5), 0},  {minutes(6), 1},
      {hours(12), 143}, {minutes(721), 144},  {hours(24), 167}, {minutes(1441), 168},
      {days(2), 168},   {minutes(2881), 169}, {days(30), 196},  {minutes(43201), 197},
      {weeks(5), 197},  {weeks(63), 255},     {weeks(64), 255}, {minutes::max(), 255}};
  for (const auto& [time, octet] : rows) EXPECT_EQ(RelativeValidity(time), octet) << time.count();
}

TEST(TpduLength, LeavesOutTheServiceCentre) {
  EXPECT_EQ(TpduLength(Bytes("07915155000000F011000B915155101032F40000FF05E8329BFD06")), 19u);
  EXPECT_EQ(TpduLength(Bytes("0001000B915155101032F4000005E8329BFD06")), 18u);
  EXPECT_EQ(TpduLength(Bytes("07")), 0u);
  EXPECT_EQ(TpduLength({}), 0u);
}

TEST(Pdu, DecodingSurvivesAnyOctets) {
  std::mt19937 random(20260131);
  const auto part = SplitText(std::string(161, 'x'), {7, false}).value()[1];
  const Octets templates[] = {
      EncodeDeliver({"+31624000000", "+31641600986", 0, 0, {2026, 1, 31, 12, 0, 0, 60}, part}),
      Bytes("0051000B915155101032F40008FF0C0500030102010047007200FC")};
  std::size_t decoded = 0;
  for (int round = 0; round < 50000; ++round) {
    Octets octets = templates[round % 2];
    for (int changes = round % 7; changes >= 0; --changes) {
      octets[random() % octets.size()] = static_cast<std::uint8_t>(random() & 0xFF);
    }
    if (round % 5 == 0) octets.resize(random() % (octets.size() + 1));
    DeliverPdu deliver;
    SubmitPdu submit;
    StatusReportPdu report;
    decoded += DecodeStatusReport(octets, report) ? 1U : 0U;
    decoded += DecodeDeliver(octets, deliver) ? 1U : 0U;
    decoded += DecodeSubmit(octets, submit) ? 1U : 0U;
    EXPECT_LE(TextOf(deliver.data).size() + TextOf(submit.data).size(), 2000u);
  }
  EXPECT_GT(decoded, 1000u) << "too few of the octets can be decoded to test anything";
}

TEST(DeliverSize, IsWhatTheLengthFieldsSay) {
  const std::string whole =
      "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
  EXPECT_EQ(DeliverSize(Bytes(whole)), 38u);
  EXPECT_EQ(DeliverSize(Bytes(whole + "FFFF")), 38u);
  EXPECT_EQ(DeliverSize(Bytes(whole.substr(0, whole.size() - 4))), 38u);
  EXPECT_EQ(DeliverSize(Bytes("00040B911346610089F600002080629173140801C1")), 21u);
  EXPECT_EQ(DeliverSize(Bytes("00040B911346610089F6000820806291731408040041")), 24u) << "UCS-2";
}

TEST(DeliverSize, OfAnythingButADeliverIsZero) {
  EXPECT_EQ(DeliverSize({}), 0u);
  EXPECT_EQ(DeliverSize(Bytes("07911326040000F0040B91")), 0u) << "cut before its length";
  EXPECT_EQ(DeliverSize(Bytes("0001000B915155101032F4000005E8329BFD06")), 0u) << "SMS-SUBMIT";
}

}  // namespace
}  // namespace gsm
