// SPDX-License-Identifier: MIT
// Where the Unix sockets of the running programs are. Threads: any.
#pragma once

#include <filesystem>

#include "libs/base/descriptor.h"

namespace corvane::bench {

/// $RUNTIME_DIRECTORY (systemd's; the first of several), else $XDG_RUNTIME_DIR/corvane. Empty:
/// neither is set.
[[nodiscard]] std::filesystem::path SocketFolder();

/// A connection that does not block. Nothing, with errno, when nobody listens (ECONNREFUSED,
/// ENOENT), it is not allowed (EACCES), or the program does not take those that wait (EAGAIN).
/// Never waits.
[[nodiscard]] Descriptor ConnectLocally(const std::filesystem::path& socket);

/// Whether a program listens there. A socket whose program was killed stays behind.
[[nodiscard]] bool IsListening(const std::filesystem::path& socket);

}  // namespace corvane::bench
