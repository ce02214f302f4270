// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using namespace corvane_sms;

std::string Repeat(const std::string& text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(SmsContent, OutlivesAStore) {
  const SmsContent content{
      .text = "a \"quoted\" \\ text\n😀", .reference = 255, .flash = true, .report = true};
  EXPECT_EQ(ReadContent(ToJson(content)), content);
  EXPECT_EQ(ReadContent(ToJson(SmsContent{.text = "x"})), SmsContent{.text = "x"});
}

TEST(SmsContent, IsNothingIfTheStoreHasSomethingElse) {
  for (const char* text : {"", "{", "[]", "{}", "{\"text\": 7}", "null"}) {
    EXPECT_EQ(ReadContent(text), std::nullopt) << text;
  }
}

TEST(SmsProgress, OutlivesAStore) {
  SmsProgress progress;
  progress.parts = {{.reference = 0, .status = 0x30}, {.reference = 255, .status = std::nullopt}};
  progress.validity = 167;
  EXPECT_EQ(ReadProgress(ToJson(progress)), progress);
}

TEST(SmsProgress, IsEmptyIfTheStoreHasSomethingElse) {
  for (const char* text : {"", "{", "[]", "{\"parts\": 7}", "{\"parts\": [7]}"}) {
    EXPECT_EQ(ReadProgress(text), SmsProgress{}) << text;
  }
}

TEST(SmsProgress, IsDeliveredWhenEveryPartIs) {
  SmsProgress progress;
  progress.parts = {{.reference = 1, .status = 0x00}, {.reference = 2, .status = std::nullopt}};
  EXPECT_FALSE(progress.reported());
  progress.parts[1].status = 0x20;  // the service centre still tries
  EXPECT_FALSE(progress.reported());
  progress.parts[1].status = 0x01;  // passed on, not known to be delivered
  EXPECT_TRUE(progress.reported());
  EXPECT_FALSE(progress.delivered());
  progress.parts[1].status = 0x00;
  EXPECT_TRUE(progress.delivered());
}

TEST(MakeSubmit, HasWhatTheJobAsksFor) {
  gsm::SubmitPdu pdu;
  const SmsContent content{
      .text = Repeat("a", 161), .reference = 77, .flash = true, .report = true};
  ASSERT_TRUE(gsm::DecodeSubmit(MakeSubmit(content, "+15550101234", 1, 167), pdu));
  EXPECT_EQ(pdu.destination, "+15550101234");
  EXPECT_TRUE(pdu.status_report_requested);
  EXPECT_EQ(gsm::ReadDataCoding(pdu.data_coding_scheme).message_class, 0);
  EXPECT_EQ(pdu.validity_period, gsm::Octets{167});
  ASSERT_TRUE(pdu.data.header.concatenation);
  EXPECT_EQ(*pdu.data.header.concatenation,
            (gsm::Concatenation{.reference = 77, .total = 2, .sequence = 2, .wide = false}));
  EXPECT_EQ(gsm::TextOf(pdu.data), "aaaaaaaa");
}

TEST(MakeSubmit, IsAPlainMessageByDefault) {
  gsm::SubmitPdu pdu;
  ASSERT_TRUE(gsm::DecodeSubmit(MakeSubmit({.text = "Ж"}, "0151*#", 0, 0), pdu));
  EXPECT_EQ(pdu.destination, "0151*#");
  EXPECT_FALSE(pdu.status_report_requested);
  EXPECT_EQ(pdu.data_coding_scheme, 0x08);
  EXPECT_EQ(gsm::TextOf(pdu.data), "Ж");
}

TEST(ValidityOf, IsRoundedUp) {
  EXPECT_EQ(ValidityOf(24h), 167);
  EXPECT_EQ(ValidityOf(1ms), 0) << "five minutes are the least";
  EXPECT_EQ(ValidityOf(5min + 1ms), 1);
}

}  // namespace
