// SPDX-License-Identifier: MIT
#include "runtime/bench/server/web_address.h"

#include <fmt/format.h>

#include <boost/asio/ip/address.hpp>
#include <charconv>
#include <system_error>

namespace corvane::bench {
namespace {

[[noreturn]] void Refuse(std::string_view text) {
  throw BenchError(fmt::format(
      "'{}' is not an address; write PORT or ADDRESS:PORT with a port from 0 to 65535, such as "
      "8080, 192.168.1.5:8080 or [::]:8080",
      text));
}

std::uint16_t ParsePort(std::string_view port, std::string_view whole) {
  std::uint16_t number = 0;
  const char* const end = port.data() + port.size();
  const auto [stop, error] = std::from_chars(port.data(), end, number);
  if (error != std::errc() || stop != end) Refuse(whole);
  return number;
}

}  // namespace

bool WebAddress::IsLoopback() const {
  return boost::asio::ip::make_address(address).is_loopback();
}

std::string WebAddress::Text() const {
  const bool is_v6 = address.find(':') != std::string::npos;
  return is_v6 ? fmt::format("[{}]:{}", address, port) : fmt::format("{}:{}", address, port);
}

WebAddress ParseWebAddress(std::string_view text) {
  WebAddress result;
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) {
    result.port = ParsePort(text, text);
    return result;
  }
  result.port = ParsePort(text.substr(colon + 1), text);
  std::string_view host = text.substr(0, colon);
  if (host == "localhost") return result;
  const bool in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (in_brackets) host = host.substr(1, host.size() - 2);
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(std::string(host), error);
  if (error || address.is_v6() != in_brackets) Refuse(text);
  result.address = address.to_string();
  return result;
}

}  // namespace corvane::bench
