// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/shown_reply.h"

#include <gtest/gtest.h>

#include "addins/corvane_fb_lib/base64.h"

namespace {

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
  EXPECT_EQ(shown("500 " + base64_encode(password)), "500 ***");
  EXPECT_EQ(shown("500 " + base64_encode(login) + " my-login"), "500 *** ***");
  EXPECT_EQ(shown("500 S3CRET-top-secret"), "500 ***");
  EXPECT_EQ(shown("500 unknown: " + base64_encode(password).substr(0, 10) + "..."),
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
