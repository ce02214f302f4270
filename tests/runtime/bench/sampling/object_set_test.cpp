// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/object_set.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using corvane::bench::ObjectSet;

TEST(ObjectSetTest, TakesEachObjectOnceAndNoMoreThanItsLimit) {
  const std::vector<int> objects(ObjectSet::kMostObjects + 1);
  ObjectSet set;
  EXPECT_FALSE(set.Contains(&objects[0]));
  set.Clear();
  for (std::size_t i = 0; i < ObjectSet::kMostObjects; ++i) {
    ASSERT_EQ(set.Insert(&objects[i]), ObjectSet::Added::kNew);
  }
  EXPECT_EQ(set.Insert(&objects.back()), ObjectSet::Added::kRefused);
  EXPECT_FALSE(set.Contains(&objects.back()));
  for (std::size_t i = 0; i < ObjectSet::kMostObjects; ++i) {
    ASSERT_EQ(set.Insert(&objects[i]), ObjectSet::Added::kKnown);
    ASSERT_TRUE(set.Contains(&objects[i]));
  }
}

TEST(ObjectSetTest, IsEmptyAfterEachClear) {
  const int object = 0;
  ObjectSet set;
  for (int round = 0; round < 3; ++round) {
    set.Clear();
    EXPECT_FALSE(set.Contains(&object));
    EXPECT_EQ(set.Insert(&object), ObjectSet::Added::kNew);
    EXPECT_EQ(set.Insert(&object), ObjectSet::Added::kKnown);
  }
}

}  // namespace
