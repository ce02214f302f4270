// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/shown_reply.h"

#include <gtest/gtest.h>

#include "addins/corvane_fb_lib/base64.h"

namespace {

std::string Base64Of(const std::string& text) {
  return base64_encode(reinterpret_cast<const unsigned char*>(text.data()),
                       static_cast<unsigned>(text.size()));
}

TEST(ShownText, IsPrintable) {
  EXPECT_EQ(ShownText(""), "");
  EXPECT_EQ(ShownText("Füllstand ≥ 2,4 m"), "Füllstand ≥ 2,4 m");
  EXPECT_EQ(ShownText(std::string_view("a\0b\r\n\x1B[2J\xFC", 10)), "a\\x00b\\r\\n\\x1B[2J\\xFC");
}

TEST(ShownText, CutsALongTextBetweenCharacters) {
  EXPECT_EQ(ShownText("12345", 5), "12345");
  EXPECT_EQ(ShownText("123456", 5), "12345...");
  EXPECT_EQ(ShownText("123ü4", 4), "123...");
  EXPECT_EQ(ShownText("123≥4", 5), "123...");
  EXPECT_EQ(ShownText("12🚰4", 5), "12...");
  EXPECT_EQ(ShownText("\x80\x80\x80\x80\x80\x80", 5), "\\x80\\x80...");
}

TEST(ShownReply, EndsBeforeTheLineEnd) {
  EXPECT_EQ(ShownReply("250 ok\r\n", "plc", "s3cret"), "250 ok");
  EXPECT_EQ(ShownReply("\n", "plc", "s3cret"), "");
  EXPECT_EQ(ShownReply("", "", ""), "");
}

TEST(ShownReply, HidesLoginAndPasswordInEveryFormThatServersQuote) {
  const std::string login = "my-login";
  const std::string password = "s3cret-top-secret";
  const auto shown = [&](const std::string& line) { return ShownReply(line, login, password); };
  EXPECT_EQ(shown("500 s3cret-top-secret?"), "500 ***?");
  EXPECT_EQ(shown("500 " + Base64Of(password)), "500 ***");
  EXPECT_EQ(shown("500 " + Base64Of(login) + " my-login"), "500 *** ***");
  EXPECT_EQ(shown("500 S3CRET-top-secret"), "500 ***");
  EXPECT_EQ(shown("500 unknown: " + Base64Of(password).substr(0, 10) + "..."),
            "500 unknown: ***...");
  EXPECT_EQ(shown("500 cret-top"), "500 ***");
  EXPECT_EQ(shown("535 5.7.8 my password? top"), "535 5.7.8 my password? top");
}

TEST(ShownReply, HidesAShortSecretWhole) {
  EXPECT_EQ(ShownReply("500 pw abc", "a", "pw"), "500 *** ***bc");
}

TEST(ShownReply, CutsALineThatIsLongerThanLinesMayBe) {
  EXPECT_EQ(ShownReply("550 " + std::string(9000, 'x'), "plc", "s3cret"),
            "550 " + std::string(196, 'x') + "...");
}

}  // namespace
