// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/server_url.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane_mail {
namespace {

std::string UrlOf(const std::string& server, Security security = Security::kStartTls) {
  Account account;
  account.server = server;
  account.port = 587;
  account.security = security;
  const ServerUrl url = MakeServerUrl(account);
  char* text = nullptr;
  if (!url || curl_url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) return "";
  std::string result = text;
  curl_free(text);
  return result.substr(0, result.rfind('/'));
}

TEST(ServerUrl, TakesNamesAndAddresses) {
  EXPECT_EQ(UrlOf("mail.example"), "smtp://mail.example:587");
  EXPECT_EQ(UrlOf("mail.example", Security::kTls), "smtps://mail.example:587");
  EXPECT_EQ(UrlOf("192.0.2.1"), "smtp://192.0.2.1:587");
  EXPECT_EQ(UrlOf("2001:db8::1"), "smtp://[2001:db8::1]:587");
  EXPECT_EQ(UrlOf("fe80::1%lo"), "smtp://[fe80::1%25lo]:587");
}

TEST(ServerUrl, NamesInOtherScriptsAreConvertedWhateverTheLocale) {
  EXPECT_EQ(UrlOf("m\xC3\xBCller.example"), "smtp://xn--mller-kva.example:587");
}

TEST(ServerUrl, WhatIsNotANameOrAnAddressIsRefused) {
  using std::string_literals::operator""s;
  for (const std::string& server :
       {""s, "mail server"s, "mail/x"s, "user@mail"s, "mail:25"s, "mail\n"s, "mail?x"s, "mail#x"s,
        "::g"s, "[::1]"s, "mail\0.example"s, "\xFF.example"s, std::string(1'000'000, 'x')}) {
    EXPECT_FALSE(IsServerName(server)) << server.substr(0, 40);
  }
  EXPECT_TRUE(IsServerName("localhost"));
}

TEST(EhloName, IsAFullNameOrAnAddressLiteral) {
  EXPECT_THAT(
      EhloName(),
      testing::AnyOf("[127.0.0.1]", testing::MatchesRegex("[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+")));
}

}  // namespace
}  // namespace corvane_mail
