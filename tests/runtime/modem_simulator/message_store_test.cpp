// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_store.h"

#include <gtest/gtest.h>

namespace modem_simulator {
namespace {

TEST(MessageStore, UsesTheLowestFreePlace) {
  MessageStore store(3, 1);
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {}), 1);
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {}), 2);
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {}), 3);
  EXPECT_TRUE(store.Erase(2));
  EXPECT_FALSE(store.Erase(2));
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {}), 2);
}

TEST(MessageStore, AcceptsNoMoreThanItHasPlaces) {
  MessageStore store(1, 0);
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {7}), 0);
  EXPECT_TRUE(store.full());
  EXPECT_EQ(store.Add(MessageStatus::kUnread, {8}), std::nullopt);
  EXPECT_EQ(store.Find(0)->pdu, gsm::Octets{7});
  EXPECT_EQ(store.Find(1), nullptr);
}

TEST(MessageStore, KnowsItsPlaces) {
  const MessageStore store(20, 1);
  EXPECT_FALSE(store.IsPlace(0));
  EXPECT_TRUE(store.IsPlace(1));
  EXPECT_TRUE(store.IsPlace(20));
  EXPECT_FALSE(store.IsPlace(21));
}

}  // namespace
}  // namespace modem_simulator
