// SPDX-License-Identifier: MIT
// Carries mails to mail servers (RFC 5321), several servers at once, without ever waiting for one
// of them. libcurl opens the connections and secures them; what a mail's transaction needs is sent
// over them here, since libcurl's own transfers wait for the final reply with all other mails held
// up. Threads: one, except for Wake and AbortAll, which any thread may call.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "addins/corvane_mail/attempt.h"

namespace corvane_mail {

class MailCarrier {
 public:
  /// `keep_open`: how long a connection without work stays open.
  /// @throws std::runtime_error without memory or descriptors
  explicit MailCarrier(std::chrono::milliseconds keep_open = std::chrono::seconds(5));
  MailCarrier(const MailCarrier&) = delete;
  MailCarrier& operator=(const MailCarrier&) = delete;
  /// Closes all connections at once. Attempts under way end without an outcome.
  ~MailCarrier();

  /// Attempts with the same route share one connection, one after the other.
  void Begin(Attempt attempt);
  /// Works for so long; less if an attempt has ended, or Wake was called.
  [[nodiscard]] std::vector<Outcome> Poll(std::chrono::milliseconds longest);
  /// True while an attempt of this route (RouteOf) is under way or waits for its connection.
  [[nodiscard]] bool IsBusy(const std::string& route) const;
  /// Withdraws an attempt; the next Poll tells its end: kAborted, or kUnknown after the final dot.
  void Abort(std::int64_t id);

  /// Lets a Poll return that waits, or the next one.
  void Wake() noexcept;
  /// Withdraws all attempts, also those that begin later, and cuts the connections.
  void AbortAll() noexcept;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace corvane_mail
