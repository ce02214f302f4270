// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/sim_card.h"

#include <gtest/gtest.h>

namespace modem_simulator {
namespace {

TEST(SimCard, WithoutAPinIsReady) {
  EXPECT_EQ(SimCard("").state(), "READY");
}

TEST(SimCard, AsksForItsPinAfterEveryPowerOn) {
  SimCard sim("1234");
  EXPECT_EQ(sim.state(), "SIM PIN");
  EXPECT_TRUE(sim.Enter("1234"));
  EXPECT_EQ(sim.state(), "READY");
  sim.PowerOn();
  EXPECT_EQ(sim.state(), "SIM PIN");
}

TEST(SimCard, IsBlockedByThreeWrongPinsInARow) {
  SimCard sim("1234");
  EXPECT_FALSE(sim.Enter("0000"));
  EXPECT_FALSE(sim.Enter("0000"));
  EXPECT_TRUE(sim.Enter("1234")) << "the third attempt is still good";
  sim.PowerOn();
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(sim.Enter("0000"));
  EXPECT_EQ(sim.state(), "SIM PUK");
  EXPECT_FALSE(sim.Enter("1234"));
  sim.PowerOn();
  EXPECT_EQ(sim.state(), "SIM PUK") << "power does not unblock it";
}

}  // namespace
}  // namespace modem_simulator
