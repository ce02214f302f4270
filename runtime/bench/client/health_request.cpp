// SPDX-License-Identifier: MIT
#include "runtime/bench/client/health_request.h"

#include <boost/asio/io_context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include "libs/base/printable.h"
#include "runtime/bench/client/local_socket.h"

namespace corvane::bench {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using Error = beast::error_code;

constexpr std::size_t kLongestAnswer = std::size_t{16} * 1024;
constexpr std::size_t kLongestReason = 200;
constexpr unsigned kHttp11 = 11;

void Check(const Error& error) {
  if (error == beast::error::timeout) throw ClientError("it does not answer");
  if (error) throw ClientError("it answers what cannot be understood: " + error.message());
}

}  // namespace

std::string AskHealth(const std::filesystem::path& socket, std::chrono::milliseconds patience) {
  boost::asio::io_context context;
  LocalStream stream = OpenLocalStream(context, socket);
  stream.expires_after(patience);
  http::request<http::empty_body> request(http::verb::get, "/healthz", kHttp11);
  request.set(http::field::host, "localhost");
  request.set(http::field::connection, "close");
  http::response_parser<http::string_body> answer;
  answer.body_limit(kLongestAnswer);
  beast::flat_buffer buffer(kLongestAnswer);
  Error result;
  http::async_write(stream, request, [&](const Error& error, std::size_t) {
    result = error;
    if (error) return;
    // The header by itself: when it reads all at once, Beast ignores the limit of the body.
    http::async_read_header(stream, buffer, answer, [&](const Error& header_error, std::size_t) {
      result = header_error;
      if (header_error) return;
      http::async_read(stream, buffer, answer,
                       [&result](const Error& read_error, std::size_t) { result = read_error; });
    });
  });
  context.run();
  Check(result);
  std::string reason = answer.get().body();
  while (!reason.empty() && reason.back() == '\n') reason.pop_back();
  return PrintableBeginning(reason, kLongestReason);
}

}  // namespace corvane::bench
