// SPDX-License-Identifier: MIT
// Sockets that listen, on TCP or as Unix sockets. All are close-on-exec, which those of Boost.Asio
// are not: the blocks start commands. Threads: one at a time.
#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include "libs/base/descriptor.h"
#include "runtime/bench/server/web_address.h"

namespace corvane::bench {

/// A socket that listens on TCP. `address.port` 0 becomes the port that the system has chosen.
/// @throws BenchError
[[nodiscard]] Descriptor ListenOnTcp(WebAddress& address);

/// A Unix socket FOLDER/NAME.sock of mode 0660, or FOLDER/NAME-PID.sock while another program
/// listens on that. The folder is created if it is missing. @throws BenchError
class UnixListener {
 public:
  UnixListener(const std::filesystem::path& folder, const std::string& name);
  UnixListener(const UnixListener&) = delete;
  UnixListener& operator=(const UnixListener&) = delete;
  /// Removes the socket.
  ~UnixListener();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// Hands over the descriptor; once.
  [[nodiscard]] Descriptor Take() { return std::move(descriptor_); }

 private:
  std::filesystem::path path_;
  Descriptor descriptor_;
};

}  // namespace corvane::bench
