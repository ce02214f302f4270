// SPDX-License-Identifier: MIT
#include "runtime/bench/server/http_answer.h"

#include <fmt/format.h>

#include <array>
#include <string_view>
#include <utility>

#include "runtime/bench/server/page_files.h"
#include "runtime/bench/server/request_check.h"

namespace corvane::bench {
namespace {

namespace http = boost::beast::http;

constexpr int kCookieSeconds = 30 * 24 * 3600;

// No script, style or connection from elsewhere, none in the page itself, and no frame around it.
constexpr std::string_view kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

constexpr std::array<std::pair<std::string_view, std::string_view>, 7> kSafeguards{{
    {"Content-Security-Policy", kContentPolicy},
    {"X-Frame-Options", "DENY"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-cache"},
    {"Server", "corvane"},
}};

std::string_view View(boost::beast::string_view text) {
  return {text.data(), text.size()};
}

boost::beast::string_view BoostView(std::string_view text) {
  return {text.data(), text.size()};
}

HttpResponse Answer(const HttpRequest& request, http::status status, std::string_view type,
                    std::string content) {
  HttpResponse response(status, request.version());
  for (const auto& [name, value] : kSafeguards) response.set(BoostView(name), BoostView(value));
  response.set(http::field::content_type, BoostView(type));
  response.keep_alive(request.keep_alive());
  response.body() = std::move(content);
  response.prepare_payload();
  return response;
}

/// The same answer, of which HEAD gets the header only.
HttpResponse WithoutBodyForHead(const HttpRequest& request, HttpResponse response) {
  if (request.method() == http::verb::head) response.body().clear();
  return response;
}

HttpResponse TokenToCookie(const HttpRequest& request, const HttpService& service) {
  HttpResponse response = PlainAnswer(request, 303, "");
  const auto path = PathOf(View(request.target()));
  // A path such as //other.example/ would lead elsewhere.
  const bool is_ours = FindPageFile(path) != nullptr;
  response.set(http::field::location, BoostView(is_ours ? path : "/"));
  response.set(http::field::set_cookie,
               fmt::format("{}={}; Path=/; Max-Age={}; HttpOnly; SameSite=Lax", service.cookie_name,
                           service.token, kCookieSeconds));
  response.set(http::field::cache_control, "no-store");
  return response;
}

HttpResponse FileAnswer(const HttpRequest& request, const PageFile& file) {
  const std::string tag = fmt::format("\"{}\"", file.digest);
  const bool is_known = View(request[http::field::if_none_match]) == tag;
  HttpResponse response =
      Answer(request, is_known ? http::status::not_modified : http::status::ok,
             MediaType(file.path), is_known ? std::string() : std::string(file.content));
  response.set(http::field::etag, tag);
  return response;
}

HttpResponse HealthAnswer(const HttpRequest& request, const HttpService& service) {
  const std::string problem = service.problem();
  return PlainAnswer(request, problem.empty() ? 200 : 503, problem.empty() ? "ok" : problem);
}

}  // namespace

HttpResponse PlainAnswer(const HttpRequest& request, unsigned status, std::string text) {
  return Answer(request, http::int_to_status(status), "text/plain; charset=utf-8",
                std::move(text) + "\n");
}

std::optional<HttpResponse> Refusal(const HttpRequest& request, const HttpService& service,
                                    bool is_local) {
  if (is_local) return std::nullopt;
  const RequestOrigin origin{View(request[http::field::host]), View(request[http::field::origin]),
                             View(request[http::field::authorization]),
                             View(request[http::field::cookie]), View(request.target())};
  if (!IsOurHost(origin.host, service.machine)) {
    return PlainAnswer(request, 421,
                       "This name is not one of this machine; open the page by its IP address.");
  }
  if (!IsOurOrigin(origin.origin, origin.host)) {
    return PlainAnswer(request, 403, "Another web page must not read or change this one.");
  }
  if (service.token.empty()) return std::nullopt;
  switch (FindToken(origin, service.token, service.cookie_name)) {
    case TokenUse::kHeader: return std::nullopt;
    case TokenUse::kQuery:
      if (PathOf(origin.target) == "/ws") return std::nullopt;  // it has no cookies to take
      return TokenToCookie(request, service);
    case TokenUse::kMissing: break;
  }
  HttpResponse response = PlainAnswer(
      request, 401, "A token is needed: open /?token=TOKEN once, with the token of the file.");
  response.set(http::field::www_authenticate, "Bearer");
  return response;
}

HttpResponse AnswerTo(const HttpRequest& request, const HttpService& service) {
  if (request.method() != http::verb::get && request.method() != http::verb::head) {
    HttpResponse response = PlainAnswer(request, 405, "Only GET and HEAD are answered.");
    response.set(http::field::allow, "GET, HEAD");
    return response;
  }
  const std::string_view path = PathOf(View(request.target()));
  if (path == "/metrics") {
    return WithoutBodyForHead(
        request, Answer(request, http::status::ok, "text/plain; version=0.0.4; charset=utf-8",
                        service.metrics()));
  }
  if (path == "/healthz") return WithoutBodyForHead(request, HealthAnswer(request, service));
  if (const PageFile* const file = FindPageFile(path)) {
    return WithoutBodyForHead(request, FileAnswer(request, *file));
  }
  return WithoutBodyForHead(request, PlainAnswer(request, 404, "There is no such page."));
}

}  // namespace corvane::bench
