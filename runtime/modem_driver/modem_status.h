// SPDX-License-Identifier: MIT
// What a modem port is doing, in one line for people.
// Threads: any.
#pragma once

#include <mutex>
#include <string>
#include <utility>

namespace corvane {

class ModemStatus {
 public:
  void Set(std::string text) {
    const std::lock_guard guard(mutex_);
    text_ = std::move(text);
  }
  [[nodiscard]] std::string Get() const {
    const std::lock_guard guard(mutex_);
    return text_;
  }

 private:
  mutable std::mutex mutex_;
  std::string text_;  // guarded by mutex_
};

}  // namespace corvane
