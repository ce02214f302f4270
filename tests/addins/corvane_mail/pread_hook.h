// SPDX-License-Identifier: MIT
// Lets a test act at the moment at which a file is read: the linker redirects pread to
// pread_hook.cpp (-Wl,--wrap). Threads: a hook affects only the calls of the thread that set it.
#pragma once

#include <functional>
#include <utility>

namespace test_support {

/// Called before each pread; empty: none.
std::function<void()>& PreadHook();

/// Sets what happens before the next pread, once, as long as the guard lives.
class BeforeNextPread {
 public:
  explicit BeforeNextPread(std::function<void()> action) {
    PreadHook() = [action = std::move(action)] {
      const auto once = std::exchange(PreadHook(), nullptr);
      action();
    };
  }
  BeforeNextPread(const BeforeNextPread&) = delete;
  BeforeNextPread& operator=(const BeforeNextPread&) = delete;
  ~BeforeNextPread() { PreadHook() = nullptr; }
};

}  // namespace test_support
