// SPDX-License-Identifier: MIT
#include "libs/mail/message_id.h"

#include <gmock/gmock.h>

#include <set>

namespace mail {
namespace {

TEST(MessageId, HasRandomDigitsAndTheDomain) {
  EXPECT_THAT(NewMessageId("plant.example"),
              testing::MatchesRegex("<[0-9a-f]{32}@plant\\.example>"));
}

TEST(MessageId, NeverComesTwice) {
  std::set<std::string> ids;
  for (int i = 0; i < 1000; ++i) ids.insert(NewMessageId("plant.example"));
  EXPECT_EQ(ids.size(), 1000U);
}

}  // namespace
}  // namespace mail
