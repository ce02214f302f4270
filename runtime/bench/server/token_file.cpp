// SPDX-License-Identifier: MIT
#include "runtime/bench/server/token_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "libs/base/descriptor.h"
#include "runtime/bench/server/web_address.h"

namespace corvane::bench {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._~+/=-";

[[noreturn]] void FailWith(const std::filesystem::path& file, int error) {
  throw BenchError(fmt::format("the token file {} cannot be read: {}", file.string(),
                               std::generic_category().message(error)));
}

/// Checks the open file, so that it cannot be exchanged after the check.
void CheckAccess(const std::filesystem::path& file, int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) FailWith(file, errno);
  if (!S_ISREG(status.st_mode)) {
    throw BenchError(fmt::format("the token file {} is not a file", file.string()));
  }
  if (status.st_uid != geteuid() && status.st_uid != 0) {
    throw BenchError(
        fmt::format("the token file {} belongs to another user, who could change it; it must be "
                    "yours or root's",
                    file.string()));
  }
  // systemd's credentials are readable by root's group, with the service added by an access list.
  const bool is_roots = status.st_uid == 0 && status.st_gid == 0;
  const mode_t others = is_roots ? S_IRWXO | S_IWGRP : S_IRWXO | S_IRWXG;
  if ((status.st_mode & others) != 0) {
    throw BenchError(fmt::format("the token file {} can be read or changed by others; chmod 600 {}",
                                 file.string(), file.string()));
  }
}

}  // namespace

std::string ReadTokenFile(const std::filesystem::path& file) {
  // Not blocking: a named pipe would hold up the start.
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (descriptor.get() < 0) FailWith(file, errno);
  CheckAccess(file, descriptor.get());
  std::array<char, kLongestToken + 2> room{};
  const ssize_t count = read(descriptor.get(), room.data(), room.size());
  if (count < 0) FailWith(file, errno);
  std::string_view token(room.data(), static_cast<std::size_t>(count));
  if (token.ends_with('\n')) token.remove_suffix(1);
  const bool is_usable = token.size() >= kShortestToken && token.size() <= kLongestToken &&
                         token.find_first_not_of(kAlphabet) == std::string_view::npos;
  if (!is_usable) {
    throw BenchError(
        fmt::format("the token file {} must have one line of {} to {} letters, digits or ._~+/=-; "
                    "openssl rand -hex 16 makes one",
                    file.string(), kShortestToken, kLongestToken));
  }
  return std::string(token);
}

}  // namespace corvane::bench
