// SPDX-License-Identifier: MIT
#include "libs/gsm/time_stamp.h"

#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

TEST(UtcOffset, EveryOctetYieldsWholeQuartersOrIsRefused) {
  for (int value = 0; value <= 0xFF; ++value) {
    const auto octet = static_cast<std::uint8_t>(value);
    OctetReader in({&octet, 1});
    EXPECT_EQ(UtcOffsetMinutes(in) % 15, 0) << "octet " << value;
    EXPECT_EQ(in.error() == PduError::kNone, (value >> 4) <= 9) << "octet " << value;
    EXPECT_EQ(UtcOffsetMinutes(in), 0) << "read past the end";
  }
}

TimeStamp TimeStampOf(std::string_view digits) {
  const Octets octets = FromHexadecimal(digits).value();
  OctetReader in(octets);
  return ReadTimeStamp(in);
}

TEST(TimeStamp, ReadsSwappedDigits) {
  EXPECT_EQ(TimeStampOf("20806291731408"), (TimeStamp{2002, 8, 26, 19, 37, 41, 0}));
  EXPECT_EQ(TimeStampOf("1110113152140A").utc_offset_minutes, -300);
  EXPECT_EQ(TimeStampOf("11101131521440").utc_offset_minutes, 60);
}

TEST(TimeStamp, RoundTripsWithEveryZone) {
  for (int quarters = -79; quarters <= 79; ++quarters) {
    const TimeStamp time{2026, 12, 31, 23, 59, 58, 15 * quarters};
    Octets octets;
    WriteTimeStamp(time, octets);
    EXPECT_EQ(TimeStampOf(ToHexadecimal(octets)), time);
  }
}

TEST(TimeStamp, RefusesADigitAboveNine) {
  const Octets octets{0xA2, 0, 0, 0, 0, 0, 0};
  OctetReader in(octets);
  EXPECT_EQ(ReadTimeStamp(in).year, 2000);
  EXPECT_EQ(in.error(), PduError::kBadDigit);
}

TEST(TimeStamp, IsWrittenAndReadAsPeopleWriteIt) {
  const TimeStamp time{2026, 1, 31, 12, 0, 5, -210};
  EXPECT_EQ(FormatTimeStamp(time), "2026-01-31T12:00:05-03:30");
  EXPECT_EQ(ParseTimeStamp("2026-01-31T12:00:05-03:30"), time);
  EXPECT_EQ(ParseTimeStamp("2024-02-29T23:59:59Z"), (TimeStamp{2024, 2, 29, 23, 59, 59, 0}));
  EXPECT_EQ(ParseTimeStamp("2024-02-29T23:59:59"), (TimeStamp{2024, 2, 29, 23, 59, 59, 0}));
}

TEST(TimeStamp, IsNotReadFromAnInvalidTime) {
  for (const char* text :
       {"", "2026", "2026-01-31", "2026-02-29T00:00:00", "2026-13-01T00:00:00",
        "1999-12-31T23:59:59", "2100-01-01T00:00:00", "2026-01-31T24:00:00", "2026-01-31T12:60:00",
        "2026-01-31T12:00:00+1", "2026-01-31T12:00:00+01:10", "2026-01-31T12:00:00+15:00",
        "2026-01-31T12:00:00Zx", "2026-1-31T12:00:00", "+026-01-31T12:00:00"}) {
    EXPECT_EQ(ParseTimeStamp(text), std::nullopt) << text;
  }
}

TEST(TimeStamp, ShowsAnInstantInItsZone) {
  const std::chrono::system_clock::time_point newyear =
      std::chrono::sys_days(std::chrono::year(2026) / std::chrono::January / 1);
  EXPECT_EQ(FormatTimeStamp(ToTimeStamp(newyear, -60)), "2025-12-31T23:00:00-01:00");
}

TEST(TimeStamp, IsAnInstantInAnyZone) {
  const std::chrono::sys_seconds newyear =
      std::chrono::sys_days(std::chrono::year(2026) / std::chrono::January / 1);
  EXPECT_EQ(ToTime(ParseTimeStamp("2026-01-01T00:00:00Z").value()), newyear);
  EXPECT_EQ(ToTime(ParseTimeStamp("2025-12-31T23:00:00-01:00").value()), newyear);
  EXPECT_EQ(ToTime(ParseTimeStamp("2026-01-01T05:45:01+05:45").value()),
            newyear + std::chrono::seconds(1));
}

}  // namespace
}  // namespace gsm
