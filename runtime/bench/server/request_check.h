// SPDX-License-Identifier: MIT
// Whether an HTTP request may be answered: the guard against other web pages in the user's browser
// (DNS rebinding, cross-site requests and WebSockets) and against those who lack the token.
// Pure functions. RFC 9110 (Host, Authorization), RFC 6454 (Origin), RFC 6265 (cookies).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::bench {

/// What a request says about where it comes from. Views of the request's header.
struct RequestOrigin {
  std::string_view host = {};           ///< "127.0.0.1:8080"
  std::string_view origin = {};         ///< empty: not a browser, or a request of the user's own
  std::string_view authorization = {};  ///< "Bearer TOKEN"
  std::string_view cookie = {};
  std::string_view target = {};  ///< "/ws?token=TOKEN"
};

/// Whether `host`, a Host header, names this machine: localhost, an IP address, or `machine` (also
/// with ".local"). A name that somebody else's name server may resolve to this machine does not.
[[nodiscard]] bool IsOurHost(std::string_view host, std::string_view machine);

/// Whether a request that a page of `origin` makes comes from our own page: the same host and port.
/// Empty: it does not come from a page.
[[nodiscard]] bool IsOurOrigin(std::string_view origin, std::string_view host);

/// How a request shows that it knows the token.
enum class TokenUse : std::uint8_t {
  kMissing,  ///< not at all, or a wrong one
  kHeader,   ///< in the header or a cookie
  kQuery,    ///< in the address: to be exchanged for a cookie
};
[[nodiscard]] TokenUse FindToken(const RequestOrigin& request, std::string_view token,
                                 std::string_view cookie_name);

/// The path of a target: "/ws" of "/ws?token=x".
[[nodiscard]] std::string_view PathOf(std::string_view target);

}  // namespace corvane::bench
