// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/message_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

namespace corvane_sms {
namespace {

using testing::Field;

ListedPdu Only(std::string_view header) {
  const std::string answer = std::string(header) + "\r\n0011\r\nOK\r\n";
  const MessageList list = ReadMessageList(answer);
  EXPECT_EQ(list.entries.size(), 1u) << header;
  EXPECT_TRUE(list.complete) << header;
  if (list.entries.empty()) return {-1, StoredAs::kUnknown, {}};
  EXPECT_EQ(list.entries[0].pdu.size(), 4u) << header;
  ListedPdu entry = list.entries[0];
  entry.pdu = {};  // it borrows from the answer, which ends here
  return entry;
}

TEST(MessageList, IsReadInTheOrderOfTheModem) {
  const MessageList list = ReadMessageList(
      "+CMGL: 17,0,,39\r\nAA\r\n+CMGL: 3,1,,39\r\nBB\r\n+CMGL: 0,3,,9\r\nCC\r\nOK\r\n");
  ASSERT_EQ(list.entries.size(), 3u);
  EXPECT_EQ(list.entries[0].index, 17);
  EXPECT_EQ(list.entries[0].stored_as, StoredAs::kUnread);
  EXPECT_EQ(list.entries[0].pdu, "AA");
  EXPECT_EQ(list.entries[1].stored_as, StoredAs::kRead);
  EXPECT_EQ(list.entries[2].index, 0);
  EXPECT_EQ(list.entries[2].stored_as, StoredAs::kSent);
  EXPECT_TRUE(list.complete);
  EXPECT_EQ(list.unreadable, 0u);
}

TEST(MessageList, IsReadAsEveryMakerWritesIt) {
  for (const char* header :
       {"+CMGL: 5,1,,39", "+CMGL:5,1,,39", "+CMGL: 5,1,\"\",18", "+CMGL: 5,1,\"616E64726577\",23",
        "+CMGL: 5,1,\"Huber, Anna, 2\",23", "+CMGL: 5,1,35", "+CMGL:  5 , 1 ,, 39"}) {
    const ListedPdu entry = Only(header);
    EXPECT_EQ(entry.index, 5) << header;
    EXPECT_EQ(entry.stored_as, StoredAs::kRead) << header;
  }
}

TEST(MessageList, HasNoStatusIfTheHeaderLacksIt) {
  for (const char* header : {"+CMGL: 5", "+CMGL: 5,39", "+CMGL: 5,,,39", "+CMGL: 5,7,,39",
                             "+CMGL: 5,\"REC READ\",,39", "+CMGL: 5,-1,,39"}) {
    EXPECT_EQ(Only(header).stored_as, StoredAs::kUnknown) << header;
  }
}

TEST(MessageList, HasPlacesAboveTheSizeOfASimCard) {
  EXPECT_EQ(Only("+CMGL: 666,1,,22").index, 666);
  EXPECT_EQ(Only("+CMGL: 999999,1,,22").index, 999'999);
}

TEST(MessageList, CountsHeadersWithoutAPlaceAndReadsOn) {
  for (const char* header :
       {"+CMGL:", "+CMGL: ", "+CMGL: x,1,,39", "+CMGL: -1,1,,39", "+CMGL: 1000000,1,,39",
        "+CMGL: 99999999999999999999,1,,39", "+CMGL: \"1,1,,39"}) {
    const std::string answer = std::string(header) + "\r\nAA\r\n+CMGL: 2,1,,39\r\nBB\r\nOK\r\n";
    const MessageList list = ReadMessageList(answer);
    EXPECT_EQ(list.unreadable, 1u) << header;
    ASSERT_EQ(list.entries.size(), 1u) << header;
    EXPECT_EQ(list.entries[0].pdu, "BB") << header;
  }
}

TEST(MessageList, HasAnEmptyPduIfThePlaceIsEmpty) {
  const MessageList list = ReadMessageList("+CMGL: 1,1,,0\r\n\r\n+CMGL: 2,1,,39\r\nBB\r\nOK\r\n");
  ASSERT_EQ(list.entries.size(), 2u);
  EXPECT_EQ(list.entries[0].pdu, "");
  EXPECT_EQ(list.entries[1].pdu, "BB");
}

TEST(MessageList, IsIncompleteWithoutItsOk) {
  for (const char* answer :
       {"", "+CMGL: 1,1,,39\r\nAA\r\n", "+CMGL: 1,1,,39\r\nAA",
        "+CMGL: 1,1,,39\r\nAA\r\n+CMS ERROR: 500\r\n", "+CMGL: 1,1,,39\r\nOK\r\n", "ERROR\r\n"}) {
    EXPECT_FALSE(ReadMessageList(answer).complete) << answer;
  }
  EXPECT_TRUE(ReadMessageList("OK\r\n").complete);
  EXPECT_TRUE(ReadMessageList("OK\r\n").entries.empty());
}

TEST(MessageList, OfAnyOctetsHasOnlyPlacesInRange) {
  constexpr std::string_view kOctets = "+CMGL: 0123456789,\"\r\nOKAF\xFF";
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::string answer;
    for (std::size_t i = random() % 60; i > 0; --i) {
      answer += random() % 8 == 0 ? "+CMGL: " : kOctets.substr(random() % kOctets.size(), 1);
    }
    for (const ListedPdu& entry : ReadMessageList(answer).entries) {
      ASSERT_GE(entry.index, 0) << answer;
      ASSERT_LE(entry.index, 999'999) << answer;
    }
  }
}

}  // namespace
}  // namespace corvane_sms
