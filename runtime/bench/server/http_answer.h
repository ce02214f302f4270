// SPDX-License-Identifier: MIT
// The answer to an HTTP request: the page's files, /metrics and /healthz (RFC 9110).
// Pure functions, apart from what the services are asked.
#pragma once

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <optional>
#include <string>

#include "runtime/bench/server/http_service.h"

namespace corvane::bench {

using HttpRequest = boost::beast::http::request<boost::beast::http::empty_body>;
using HttpResponse = boost::beast::http::response<boost::beast::http::string_body>;

/// Why the request must not be answered, as a complete response; empty: it may be answered.
/// @param is_local it came through the Unix socket, whose mode has decided that
[[nodiscard]] std::optional<HttpResponse> Refusal(const HttpRequest& request,
                                                  const HttpService& service, bool is_local);

/// The answer to a request that may be answered and is not for a WebSocket.
[[nodiscard]] HttpResponse AnswerTo(const HttpRequest& request, const HttpService& service);

/// A response of one line of text.
[[nodiscard]] HttpResponse PlainAnswer(const HttpRequest& request, unsigned status,
                                       std::string text);

}  // namespace corvane::bench
