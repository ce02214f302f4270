// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_joiner.h"

#include <gtest/gtest.h>

namespace modem_simulator {
namespace {

std::vector<gsm::SubmitPdu> Parts(std::string_view text, std::uint16_t reference,
                                  const gsm::Address& destination = "+15550101234") {
  std::vector<gsm::SubmitPdu> parts;
  auto split = gsm::SplitText(text, {reference, false}).value();
  for (gsm::UserData& data : split) {
    gsm::SubmitPdu pdu;
    pdu.destination = destination;
    pdu.data = std::move(data);
    parts.push_back(std::move(pdu));
  }
  return parts;
}

const std::string kLong = std::string(150, 'a') + std::string(150, 'b');

TEST(MessageJoiner, ReturnsAMessageOfOnePartAtOnce) {
  MessageJoiner joiner;
  const auto message = joiner.Add(Parts("hello", 1).front());
  ASSERT_TRUE(message);
  EXPECT_EQ(message->text, "hello");
  EXPECT_EQ(message->total, 1u);
}

TEST(MessageJoiner, JoinsPartsInAnyOrder) {
  MessageJoiner joiner;
  const auto parts = Parts(kLong, 1);
  EXPECT_FALSE(joiner.Add(parts[1]));
  const auto message = joiner.Add(parts[0]);
  ASSERT_TRUE(message);
  EXPECT_EQ(message->text, kLong);
  EXPECT_TRUE(joiner.Unfinished().empty());
}

TEST(MessageJoiner, KeepsMessagesWithDifferentReferencesOrReceiversApart) {
  MessageJoiner joiner;
  EXPECT_FALSE(joiner.Add(Parts(kLong, 1)[0]));
  EXPECT_FALSE(joiner.Add(Parts(kLong, 2)[1]));
  EXPECT_FALSE(joiner.Add(Parts(kLong, 1, "+4999")[1]));
  EXPECT_EQ(joiner.Unfinished().size(), 3u);
}

TEST(MessageJoiner, UsesARepeatedPartOnce) {
  MessageJoiner joiner;
  const auto parts = Parts(kLong, 1);
  EXPECT_FALSE(joiner.Add(parts[0]));
  EXPECT_FALSE(joiner.Add(parts[0]));
  EXPECT_EQ(joiner.Add(parts[1])->text, kLong);
}

TEST(MessageJoiner, JoinsACharacterThatIsSplitAcrossTwoParts) {
  MessageJoiner joiner;
  auto parts = Parts(kLong, 1);
  for (gsm::SubmitPdu& part : parts) part.data.alphabet = gsm::Alphabet::kUcs2;
  parts[0].data.payload = {0xD8, 0x3D};
  parts[1].data.payload = {0xDE, 0x00};
  EXPECT_FALSE(joiner.Add(parts[0]));
  EXPECT_EQ(joiner.Add(parts[1])->text, "😀");
}

TEST(MessageJoiner, ForgetsTheOldestWhenTooManyWait) {
  MessageJoiner joiner;
  for (std::size_t i = 0; i <= MessageJoiner::kMostUnfinished; ++i) {
    const gsm::Address receiver = "+1" + std::to_string(i);
    EXPECT_FALSE(joiner.Add(Parts(kLong, 1, receiver)[0]));
  }
  EXPECT_EQ(joiner.Unfinished().size(), MessageJoiner::kMostUnfinished);
  EXPECT_EQ(joiner.Unfinished().front().destination, "+11");
}

}  // namespace
}  // namespace modem_simulator
