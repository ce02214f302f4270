// SPDX-License-Identifier: MIT
// One topic of the protocol: something that clients subscribe to. Threads: the server's.
#pragma once

#include <string>
#include <vector>

namespace corvane::bench {

/// A whole message of the protocol, as JSON.
using Frame = std::string;

class Topic {
 public:
  Topic() = default;
  Topic(const Topic&) = delete;
  Topic& operator=(const Topic&) = delete;
  virtual ~Topic() = default;

  /// Somebody subscribes from now on, or nobody.
  virtual void SetWatched(bool watched) = 0;
  /// What has changed since the last call, which subscribers then have.
  [[nodiscard]] virtual std::vector<Frame> Changes() = 0;
  /// Everything that there is, as of the last call of Changes(). Empty: nothing is known yet, and
  /// the subscriber will get it with the changes.
  [[nodiscard]] virtual std::vector<Frame> Complete() = 0;
};

}  // namespace corvane::bench
