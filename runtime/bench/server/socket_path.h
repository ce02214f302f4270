// SPDX-License-Identifier: MIT
// Where the Unix sockets of the running programs are. Threads: any.
#pragma once

#include <filesystem>

namespace corvane::bench {

/// $RUNTIME_DIRECTORY (systemd's; the first of several), else $XDG_RUNTIME_DIR/corvane. Empty:
/// neither is set.
[[nodiscard]] std::filesystem::path SocketFolder();

/// Whether a program listens there. A socket whose program was killed stays behind.
[[nodiscard]] bool IsListening(const std::filesystem::path& socket);

}  // namespace corvane::bench
