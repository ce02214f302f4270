// SPDX-License-Identifier: MIT
// A file descriptor that closes itself. Threads: one at a time.
#pragma once

#include <unistd.h>

#include <utility>

namespace corvane {

/// Owns a descriptor, or nothing (a negative number, as the system's calls return it on failure).
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    const Descriptor former(std::exchange(number_, other.Release()));
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  /// The number; negative when nothing is owned.
  [[nodiscard]] int get() const { return number_; }
  /// Hands the descriptor to the caller, who closes it.
  int Release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace corvane
