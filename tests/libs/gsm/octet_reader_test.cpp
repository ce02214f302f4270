// SPDX-License-Identifier: MIT
#include "libs/gsm/octet_reader.h"

#include <gtest/gtest.h>

namespace gsm {
namespace {

const Octets kThree{1, 2, 3};

TEST(OctetReader, ReadsFromLeftToRight) {
  OctetReader in(kThree);
  EXPECT_EQ(in.Next(), 1);
  EXPECT_EQ(in.Take(2).size(), 2u);
  in.ExpectEnd();
  EXPECT_EQ(in.error(), PduError::kNone);
}

TEST(OctetReader, ReturnsNothingPastTheEnd) {
  OctetReader in(kThree);
  EXPECT_TRUE(in.Take(4).empty());
  EXPECT_EQ(in.error(), PduError::kTruncated);
  EXPECT_EQ(in.error_at(), 3u);
}

TEST(OctetReader, ConsumesNothingAfterAnError) {
  OctetReader in(kThree);
  EXPECT_EQ(in.Next(), 1);
  in.Refuse(PduError::kBadDigit);
  EXPECT_EQ(in.Next(), 0);
  EXPECT_TRUE(in.Take(1).empty());
  EXPECT_EQ(in.error(), PduError::kBadDigit);
  EXPECT_EQ(in.error_at(), 0u);
}

TEST(OctetReader, KeepsTheFirstError) {
  OctetReader in(kThree);
  in.Refuse(PduError::kBadType);
  in.Refuse(PduError::kBadDigit);
  in.ExpectEnd();
  EXPECT_EQ(in.error(), PduError::kBadType);
}

TEST(OctetReader, RefusesWhatIsLeftOver) {
  OctetReader in(kThree);
  EXPECT_EQ(in.Next(), 1);
  in.ExpectEnd();
  EXPECT_EQ(in.error(), PduError::kTrailing);
  EXPECT_EQ(in.error_at(), 1u);
}

TEST(OctetReader, EveryErrorHasADescription) {
  EXPECT_EQ(Describe(PduError::kTruncated), "octets are missing");
  EXPECT_EQ(Describe(PduError::kTrailing), "octets are left over");
}

}  // namespace
}  // namespace gsm
