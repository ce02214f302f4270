// SPDX-License-Identifier: MIT
// Passwords and access tokens in memory that is not swapped, not dumped, not inherited by commands
// that are started, and wiped at the end. Threads: any may read.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

namespace corvane_mail {

/// Memory for secrets, all zero at first. Where the system refuses a protection (there is a limit
/// to locked memory), it does without.
class LockedMemory {
 public:
  /// @throws std::bad_alloc
  explicit LockedMemory(std::size_t size);
  LockedMemory(LockedMemory&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  LockedMemory& operator=(LockedMemory&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~LockedMemory();

  [[nodiscard]] std::span<char> octets() { return {data_, size_}; }
  [[nodiscard]] std::string_view text() const { return {data_, size_}; }

 private:
  char* data_;
  std::size_t size_;
};

/// A password or an access token.
class Secret {
 public:
  /// Copies the text; wiping the original is the caller's business. @throws std::bad_alloc
  explicit Secret(std::string_view text);

  [[nodiscard]] std::string_view text() const { return memory_.text(); }

 private:
  LockedMemory memory_;
};

/// Overwrites the octets, in a way that the compiler keeps.
void Wipe(std::span<char> octets) noexcept;

}  // namespace corvane_mail
