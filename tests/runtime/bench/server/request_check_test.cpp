// SPDX-License-Identifier: MIT
#include "runtime/bench/server/request_check.h"

#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

constexpr std::string_view kToken = "0123456789abcdef+/=";

TEST(RequestCheckTest, ANameThatOthersResolveIsNotOurs) {
  for (const char* const host : {"localhost", "LOCALHOST:80", "127.0.0.1:8080", "[::1]:80",
                                 "10.0.0.7", "plc1:80", "PLC1.local"}) {
    EXPECT_TRUE(IsOurHost(host, "plc1")) << host;
  }
  for (const char* const host : {"", ":80", "evil.example", "plc1.evil.example", "localhost.evil",
                                 "127.0.0.1.evil", "[::1", "localhost:80:80", "::1", "plc1:x"}) {
    EXPECT_FALSE(IsOurHost(host, "plc1")) << host;
  }
  EXPECT_FALSE(IsOurHost(".local", ""));
}

TEST(RequestCheckTest, OnlyOurOwnPageMayAsk) {
  EXPECT_TRUE(IsOurOrigin("", "h:80"));
  EXPECT_TRUE(IsOurOrigin("http://h:80", "h:80"));
  EXPECT_TRUE(IsOurOrigin("https://h:80", "H:80"));
  for (const char* const origin :
       {"null", "http://h", "http://h:81", "http://h:80.evil", "file://h:80", "h:80", "http://"}) {
    EXPECT_FALSE(IsOurOrigin(origin, "h:80")) << origin;
  }
}

TokenUse Find(const RequestOrigin& request) {
  return FindToken(request, kToken, "corvane-80");
}

TEST(RequestCheckTest, TheTokenIsFoundWhereItMayBe) {
  EXPECT_EQ(Find({.authorization = "bearer 0123456789abcdef+/="}), TokenUse::kHeader);
  EXPECT_EQ(Find({.cookie = "corvane-8=x; corvane-80=0123456789abcdef+/=; a=b"}),
            TokenUse::kHeader);
  EXPECT_EQ(Find({.target = "/?a=b&token=0123456789abcdef%2b%2F="}), TokenUse::kQuery);
}

TEST(RequestCheckTest, AWrongTokenIsNoToken) {
  EXPECT_EQ(Find({}), TokenUse::kMissing);
  EXPECT_EQ(Find({.authorization = "0123456789abcdef+/="}), TokenUse::kMissing);
  EXPECT_EQ(Find({.authorization = "Bearer 0123456789abcdef+/"}), TokenUse::kMissing);
  EXPECT_EQ(Find({.cookie = "xcorvane-80=0123456789abcdef+/="}), TokenUse::kMissing);
  EXPECT_EQ(Find({.target = "/?token=%"}), TokenUse::kMissing);
  EXPECT_EQ(Find({.target = "/token=0123456789abcdef+/="}), TokenUse::kMissing);
}

}  // namespace
}  // namespace corvane::bench
