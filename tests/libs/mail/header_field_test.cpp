// SPDX-License-Identifier: MIT
#include "libs/mail/header_field.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

std::string Subject(std::string_view text) {
  HeaderField field("Subject");
  field.Text(text);
  return std::move(field).Take();
}

std::string To(const std::vector<Address>& addresses, bool utf8 = false) {
  HeaderField field("To");
  field.Addresses(addresses, utf8);
  return std::move(field).Take();
}

std::string FileName(std::string_view name) {
  HeaderField field("Content-Disposition");
  field.Token("attachment");
  field.ExtendedParameter("filename", name);
  return std::move(field).Take();
}

TEST(HeaderField, PlainTextIsWrittenAsItIs) {
  EXPECT_EQ(Subject("Alarm: level 2.4 m > 2.3 m (pump 3)"),
            "Subject: Alarm: level 2.4 m > 2.3 m (pump 3)\r\n");
  EXPECT_EQ(Subject(""), "Subject:\r\n");
}

TEST(HeaderField, LongTextIsFoldedBeforeABlank) {
  const std::string word(30, 'x');
  EXPECT_EQ(Subject(word + " " + word + " " + word),
            "Subject: " + word + " " + word + "\r\n " + word + "\r\n");
}

TEST(HeaderField, WhatWouldNotSurviveIsEncoded) {
  EXPECT_EQ(Subject("H\xC3\xB6he"), "Subject: =?utf-8?q?H=C3=B6he?=\r\n");
  EXPECT_EQ(Subject("two  blanks"), "Subject: =?utf-8?q?two__blanks?=\r\n");
  EXPECT_EQ(Subject(" level"), "Subject: =?utf-8?q?_level?=\r\n");
  EXPECT_EQ(Subject("level "), "Subject: =?utf-8?q?level_?=\r\n");
  EXPECT_EQ(Subject("level =?x"), "Subject: =?utf-8?q?level_=3D=3Fx?=\r\n");
  EXPECT_EQ(Subject("level\tlow"), "Subject: =?utf-8?q?level=09low?=\r\n");
  const std::string text(75, 'x');
  EXPECT_EQ(Subject(text), "Subject: =?utf-8?q?" + text.substr(0, 55) + "?=\r\n =?utf-8?q?" +
                               text.substr(55) + "?=\r\n");
}

TEST(HeaderField, NamesAreWrittenAsTheirCharactersNeed) {
  const std::string at = "a@b";
  EXPECT_EQ(To({{"", at}}), "To: a@b\r\n");
  EXPECT_EQ(To({{"Pump station 3", at}}), "To: Pump station 3 <a@b>\r\n");
  EXPECT_EQ(To({{"Doe, John \"J.\" \\", at}}), "To: \"Doe, John \\\"J.\\\" \\\\\" <a@b>\r\n");
  EXPECT_EQ(To({{"J. Doe", at}}), "To: \"J. Doe\" <a@b>\r\n");
  EXPECT_EQ(To({{"M\xC3\xBCller, K.", at}}), "To: =?utf-8?q?M=C3=BCller=2C_K=2E?= <a@b>\r\n");
  EXPECT_EQ(To({{"=?utf-8?q?x?=", at}}), "To: =?utf-8?q?=3D=3Futf-8=3Fq=3Fx=3F=3D?= <a@b>\r\n");
  EXPECT_EQ(To({{"a\r\nBcc: x@y", at}}), "To: \"a Bcc: x@y\" <a@b>\r\n");
}

TEST(HeaderField, NamesAreDividedOnlyIfTheyMust) {
  std::string name = "J\xC3\xB6rg from the pumping station at the lock";
  const std::string word = "=?utf-8?q?J=C3=B6rg_from_the_pumping_station_at_the_lock?=";
  EXPECT_EQ(To({{"", "operator@plant.example"}, {name, "a@b"}}),
            "To: operator@plant.example,\r\n " + word + " <a@b>\r\n");
  name += " on the Old Canals";
  EXPECT_EQ(To({{name, "a@b"}}),
            "To: =?utf-8?q?J=C3=B6rg_from_the_pumping_station_at_the_lock_on_the_Old_Ca?=\r\n"
            " =?utf-8?q?nals?= <a@b>\r\n");
}

TEST(HeaderField, AddressesAreFoldedAndSeparated) {
  const std::string one = "the-operator-on-duty@plant.example";
  EXPECT_EQ(To({{"", one}, {"Desk", one}, {"", one}}),
            "To: " + one + ", Desk\r\n <" + one + ">, " + one + "\r\n");
}

TEST(HeaderField, AnAddressInUtf8NeedsAServerThatTakesIt) {
  const std::vector<Address> addresses = {{"J\xC3\xB6rg", "j\xC3\xB6rg@b"}, {"", "\xC3\xBC@b"}};
  EXPECT_EQ(To(addresses, true), "To: =?utf-8?q?J=C3=B6rg?= <j\xC3\xB6rg@b>, \xC3\xBC@b\r\n");
  EXPECT_EQ(To(addresses, false),
            "To: =?utf-8?q?J=C3=B6rg_=3Cj=C3=B6rg=40b=3E?= :;, =?utf-8?b?w7xAYg==?= :;\r\n");
}

TEST(HeaderField, NoLineIsBlank) {
  const std::string one(70, 'a');
  EXPECT_EQ(To({{"", one}, {"", ""}}), "To: " + one + ",\r\n =?utf-8?q?unknown?= :;\r\n");
  EXPECT_EQ(To({{"", one}, {"", "  "}}), "To: " + one + ",\r\n =?utf-8?q?__?= :;\r\n");
}

TEST(HeaderField, NoMailboxEndsTheLine) {
  EXPECT_EQ(To({{"", "a@b\r\nBcc: x@y"}}), "To: a@b Bcc: x@y\r\n");
  EXPECT_EQ(To({{"", "a\x01@b"}}), "To: =?utf-8?q?a=01=40b?= :;\r\n");
}

TEST(HeaderField, ParametersAreQuotedWhereTheyMustBe) {
  HeaderField field("Content-Type");
  field.Token("text/plain");
  field.Parameter("charset", "utf-8");
  field.Parameter("name", "a b.txt");
  EXPECT_EQ(std::move(field).Take(),
            "Content-Type: text/plain; charset=utf-8; name=\"a b.txt\"\r\n");
}

TEST(HeaderField, NamesOfFilesAreEncodedAndDividedBetweenCharacters) {
  EXPECT_EQ(FileName("\xC3\x9C"
                     "bersicht 3.pdf"),
            "Content-Disposition: attachment; filename*=utf-8''%C3%9Cbersicht%203.pdf\r\n");
  EXPECT_EQ(FileName("100%'*/\"\n"),
            "Content-Disposition: attachment; filename*=utf-8''100%25%27%2A%2F%22%0A\r\n");
  std::string long_name;
  for (int i = 0; i < 12; ++i) long_name += "\xE6\xBC\xA2";
  EXPECT_EQ(FileName(long_name),
            "Content-Disposition: attachment;\r\n"
            " filename*0*=utf-8''%E6%BC%A2%E6%BC%A2%E6%BC%A2%E6%BC%A2%E6%BC%A2;\r\n"
            " filename*1*=%E6%BC%A2%E6%BC%A2%E6%BC%A2%E6%BC%A2%E6%BC%A2%E6%BC%A2;\r\n"
            " filename*2*=%E6%BC%A2\r\n");
}

}  // namespace
}  // namespace mail
