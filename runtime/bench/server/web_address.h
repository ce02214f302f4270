// SPDX-License-Identifier: MIT
// The address of the bench's page, as `--web [ADDRESS:]PORT` gives it. Pure functions.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane::bench {

/// Says in one line why the bench cannot be served as the options ask.
class BenchError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

struct WebAddress {
  std::string address = "127.0.0.1";  ///< IPv4 or IPv6, without brackets
  std::uint16_t port = 0;             ///< 0: one that the system chooses

  /// Only programs on this machine reach it.
  [[nodiscard]] bool IsLoopback() const;
  /// "127.0.0.1:8080", "[::1]:8080".
  [[nodiscard]] std::string Text() const;
};

/// Reads "8080", "192.168.1.5:8080", "[::]:8080" or "localhost:8080". @throws BenchError
[[nodiscard]] WebAddress ParseWebAddress(std::string_view text);

}  // namespace corvane::bench
