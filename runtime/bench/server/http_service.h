// SPDX-License-Identifier: MIT
// What the answers to HTTP requests depend on. Threads: the server's.
#pragma once

#include <functional>
#include <string>

namespace corvane::bench {

/// What the answers need to know.
struct HttpService {
  std::string machine;      ///< this machine's name
  std::string token;        ///< empty: none is needed
  std::string cookie_name;  ///< what the token is kept as
  std::function<std::string()> metrics;
  /// Empty: the program is well; else why not.
  std::function<std::string()> problem;
};

}  // namespace corvane::bench
