// SPDX-License-Identifier: MIT
#include "runtime/bench/server/http_answer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

namespace http = boost::beast::http;

using corvane::bench::AnswerTo;
using corvane::bench::HttpRequest;
using corvane::bench::HttpResponse;
using corvane::bench::HttpService;
using corvane::bench::Refusal;

class HttpAnswerTest : public testing::Test {
 protected:
  static HttpRequest Get(const std::string& target, http::verb method = http::verb::get) {
    HttpRequest request(method, target, 11);
    request.set(http::field::host, "127.0.0.1:8080");
    return request;
  }
  static std::string Text(const HttpResponse& response, http::field field) {
    return std::string(response[field]);
  }

  HttpService service_{"plc", "", "corvane-8080", [] { return "corvane_up 1\n"; },
                       [] { return ""; }};
};

TEST_F(HttpAnswerTest, ThePageComesOnceUntilItChanges) {
  const HttpResponse page = AnswerTo(Get("/"), service_);
  EXPECT_EQ(page.result_int(), 200U);
  EXPECT_EQ(Text(page, http::field::content_type), "text/html; charset=utf-8");
  EXPECT_NE(page.body().find("<!DOCTYPE html>"), std::string::npos);
  HttpRequest again = Get("/index.html");
  again.set(http::field::if_none_match, page[http::field::etag]);
  const HttpResponse known = AnswerTo(again, service_);
  EXPECT_EQ(known.result_int(), 304U);
  EXPECT_EQ(known.body(), "");
}

TEST_F(HttpAnswerTest, HealthSaysWhyItIsBad) {
  EXPECT_EQ(AnswerTo(Get("/healthz"), service_).body(), "ok\n");
  service_.problem = [] { return "no cycle has ended for 9 s"; };
  const HttpResponse bad = AnswerTo(Get("/healthz"), service_);
  EXPECT_EQ(bad.result_int(), 503U);
  EXPECT_EQ(bad.body(), "no cycle has ended for 9 s\n");
}

TEST_F(HttpAnswerTest, OthersGetAStatus) {
  EXPECT_EQ(AnswerTo(Get("/none"), service_).result_int(), 404U);
  EXPECT_EQ(AnswerTo(Get("/../page"), service_).result_int(), 404U);
  const HttpResponse posted = AnswerTo(Get("/", http::verb::post), service_);
  EXPECT_EQ(posted.result_int(), 405U);
  EXPECT_EQ(Text(posted, http::field::allow), "GET, HEAD");
  EXPECT_EQ(AnswerTo(Get("/metrics", http::verb::head), service_).body(), "");
  EXPECT_EQ(AnswerTo(Get("/metrics"), service_).body(), "corvane_up 1\n");
}

TEST_F(HttpAnswerTest, ATokenIsExchangedForACookieOnOurOwnPath) {
  service_.token = "0123456789abcdef";
  EXPECT_EQ(Refusal(Get("/"), service_, false)->result_int(), 401U);
  EXPECT_FALSE(Refusal(Get("/"), service_, true));
  const auto exchanged = Refusal(Get("//evil.example/?token=0123456789abcdef"), service_, false);
  ASSERT_TRUE(exchanged);
  EXPECT_EQ(exchanged->result_int(), 303U);
  EXPECT_EQ(Text(*exchanged, http::field::location), "/");
  EXPECT_EQ(Text(*exchanged, http::field::set_cookie),
            "corvane-8080=0123456789abcdef; Path=/; Max-Age=2592000; HttpOnly; SameSite=Lax");
  HttpRequest with_cookie = Get("/");
  with_cookie.set(http::field::cookie, "corvane-8080=0123456789abcdef");
  EXPECT_FALSE(Refusal(with_cookie, service_, false));
}

TEST_F(HttpAnswerTest, NoNameAndNoPageFromElsewhereIsServed) {
  HttpRequest named = Get("/");
  named.set(http::field::host, "evil.example");
  EXPECT_EQ(Refusal(named, service_, false)->result_int(), 421U);
  HttpRequest embedded = Get("/");
  embedded.set(http::field::origin, "http://evil.example");
  EXPECT_EQ(Refusal(embedded, service_, false)->result_int(), 403U);
}

}  // namespace
