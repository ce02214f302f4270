// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/read_allowance.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Octets that a peer without pauses gets through in this time, with this many per read.
std::size_t ReadIn(seconds time, std::size_t a_read) {
  const SteadyTime begin{};
  ReadAllowance allowance(begin);
  std::size_t octets = 0;
  for (SteadyTime now = begin; now < begin + time;) {
    const SteadyTime next = allowance.Next(now);
    if (next == now) {
      allowance.Use(a_read);
      octets += a_read;
      now += std::chrono::microseconds(1);
    } else {
      EXPECT_GT(next, now);
      now = next;
    }
  }
  return octets;
}

TEST(ReadAllowance, LetsAFullStoreThroughAtOnce) {
  const SteadyTime now{};
  ReadAllowance allowance(now);
  std::size_t octets = 0;
  for (; allowance.Next(now) == now; octets += ReadAllowance::kPiece) {
    allowance.Use(ReadAllowance::kPiece);
  }
  EXPECT_EQ(octets, ReadAllowance::kAtOnce);
}

TEST(ReadAllowance, BoundsAPeerThatNeverPauses) {
  const std::size_t most = ReadAllowance::kAtOnce + 60 * ReadAllowance::kPerSecond;
  EXPECT_LE(ReadIn(seconds(60), ReadAllowance::kPiece), most + ReadAllowance::kPiece);
  EXPECT_GE(ReadIn(seconds(60), ReadAllowance::kPiece), most / 10 * 9);
  EXPECT_LE(ReadIn(seconds(60), 1), most / ReadAllowance::kLeast + 1) << "reads cost, too";
}

TEST(ReadAllowance, IsFullAgainAfterAPause) {
  SteadyTime now{};
  ReadAllowance allowance(now);
  while (allowance.Next(now) == now) allowance.Use(ReadAllowance::kPiece);
  EXPECT_LE(allowance.Next(now) - now, milliseconds(100))
      << "a noisy line is never taken for quiet";
  now += seconds(9);
  EXPECT_EQ(allowance.Next(now), now);
  now += std::chrono::hours(24 * 365 * 20);
  EXPECT_EQ(allowance.Next(now), now);
}

}  // namespace
}  // namespace corvane
