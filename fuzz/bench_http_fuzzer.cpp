// SPDX-License-Identifier: MIT
// An HTTP request to the bench: whatever it is, nobody without the token gets what the program
// serves, and every answer has the safeguards.
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "runtime/bench/server/http_answer.h"

using namespace corvane::bench;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace http = boost::beast::http;
  http::request_parser<http::empty_body> parser;
  parser.header_limit(8 * 1024);
  boost::beast::error_code error;
  parser.put(boost::asio::buffer(data, size), error);
  if (error || !parser.is_done()) return 0;
  const HttpRequest& request = parser.get();
  bool served = false;
  HttpService service{.machine = "plc1",
                      .token = "0123456789abcdef",
                      .cookie_name = "corvane-80",
                      .metrics = [&] { return served = true, std::string("metrics"); },
                      .problem = [&] { return served = true, std::string(); }};
  auto response = Refusal(request, service, false);
  if (!response) {
    const std::string octets(reinterpret_cast<const char*>(data), size);
    // It may be escaped in the address only.
    Require(octets.find(service.token) != std::string::npos || octets.find('%') != octets.npos);
    response = AnswerTo(request, service);
  } else {
    Require(!served && response->result_int() >= 300);
  }
  Require(!(*response)[http::field::content_type].empty());
  Require(!(*response)["Content-Security-Policy"].empty());
  Require((*response)[http::field::location].find('\n') == boost::beast::string_view::npos);
  return 0;
}
