// SPDX-License-Identifier: MIT
// One connection to a mail server. libcurl opens it, up to the reply to EHLO: name service, TCP,
// TLS or STARTTLS, certificate. It stops there (CURLOPT_CONNECT_ONLY), and from then on this is a
// stream of octets that never waits. Threads: one.
#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "addins/corvane_mail/open_sockets.h"
#include "addins/corvane_mail/opening_failure.h"
#include "addins/corvane_mail/server_url.h"
#include "addins/corvane_mail/smtp_features.h"
#include "addins/corvane_mail/smtp_reply.h"

namespace corvane_mail {

struct FreeEasy {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

class CurlLink {
 public:
  using Clock = std::chrono::steady_clock;

  /// What a call of Send or Receive did.
  struct Moved {
    std::size_t octets = 0;
    bool is_lost = false;  ///< the connection is closed, or has failed
  };

  /// Begins to open the connection; `multi` carries it on, and must outlive this, like `sockets`.
  /// @throws std::runtime_error without memory, or if the server's name makes no sense
  CurlLink(Account account, CURLM* multi, OpenSockets& sockets);
  CurlLink(const CurlLink&) = delete;
  CurlLink& operator=(const CurlLink&) = delete;
  /// Closes the connection at once.
  ~CurlLink();

  /// True if this belongs to the transfer that libcurl reports.
  [[nodiscard]] bool Has(const CURL* easy) const { return easy_.get() == easy; }
  /// Takes libcurl's end of the transfer.
  void OnDone(CURLcode code);
  /// Looks how far the opening is. After a time without progress (Account::timeout), it has failed.
  void Watch(Clock::time_point now);
  [[nodiscard]] bool is_open() const { return state_ == State::kOpen; }
  [[nodiscard]] bool has_failed() const { return state_ == State::kFailed; }
  [[nodiscard]] Failure failure() const;
  /// When the opening fails, unless something happens before.
  [[nodiscard]] Clock::time_point deadline() const { return last_progress_ + account_.timeout; }

  // Of an open connection:
  [[nodiscard]] const SmtpFeatures& features() const { return features_; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  /// Sends what the connection takes now. What it did not take must come again, from the same
  /// place.
  [[nodiscard]] Moved Send(std::string_view octets);
  /// Receives what is there; 0 octets: nothing yet.
  [[nodiscard]] Moved Receive(std::span<char> octets);

 private:
  enum class State : std::uint8_t { kOpening, kOpen, kFailed };

  void SetOptions();
  void Fail(CURLcode code);
  void OnCommand(std::string_view command);
  void OnReply(std::string_view octets);
  int OpenSocket(const curl_sockaddr& address);

  static int Debug(CURL*, curl_infotype type, char* data, std::size_t size, void* link);
  static curl_socket_t Open(void* link, curlsocktype, curl_sockaddr* address);
  static int Close(void* sockets, curl_socket_t descriptor);

  Account account_;
  CURLM* multi_;
  OpenSockets* sockets_;
  ServerUrl url_;
  std::unique_ptr<CURL, FreeEasy> easy_;
  std::array<char, CURL_ERROR_SIZE> detail_{};
  State state_ = State::kOpening;
  CURLcode code_ = CURLE_OK;
  bool is_connected_ = false;  // TCP
  bool is_remote_login_ = false;
  Clock::time_point last_progress_ = Clock::now();
  std::string command_;  // the last one
  ReplyReader reader_;
  Reply last_reply_;
  SmtpFeatures features_;
  int descriptor_ = -1;
};

}  // namespace corvane_mail
