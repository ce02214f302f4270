// SPDX-License-Identifier: MIT
#include "block/rising_edge.h"

#include <gtest/gtest.h>

namespace {

TEST(RisingEdgeTest, OnlyTheChangeFromFalseToTrueIsOneAndTheFirstTrue) {
  RisingEdge edge;
  EXPECT_TRUE(edge.Rises(true));
  EXPECT_FALSE(edge.Rises(true));
  EXPECT_FALSE(edge.Rises(false));
  EXPECT_FALSE(edge.Rises(false));
  EXPECT_TRUE(edge.Rises(true));
}

}  // namespace
