// SPDX-License-Identifier: MIT
// libcurl, which sends a ready message by itself: what our mail is compared with.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

namespace benchmarks {

/// Sends messages to one server of this machine, which it logs into with LOGIN.
class CurlPeer {
 public:
  /// @param states_size in MAIL FROM (RFC 1870), which takes a server time to read
  CurlPeer(int port, bool states_size)
      : states_size_(states_size),
        curl_(curl_easy_init()),
        recipients_(curl_slist_append(nullptr, "operator@plant.example")) {
    const std::string url = "smtp://127.0.0.1:" + std::to_string(port) + "/plc.example";
    curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_, CURLOPT_USERNAME, "plc");
    curl_easy_setopt(curl_, CURLOPT_PASSWORD, "s3cret");
    curl_easy_setopt(curl_, CURLOPT_LOGIN_OPTIONS, "AUTH=LOGIN");
    curl_easy_setopt(curl_, CURLOPT_MAIL_FROM, "<pump3@plant.example>");
    curl_easy_setopt(curl_, CURLOPT_MAIL_RCPT, recipients_);
    curl_easy_setopt(curl_, CURLOPT_READFUNCTION, Read);
    curl_easy_setopt(curl_, CURLOPT_READDATA, &rest_);
    curl_easy_setopt(curl_, CURLOPT_UPLOAD, 1L);
  }
  CurlPeer(const CurlPeer&) = delete;
  CurlPeer& operator=(const CurlPeer&) = delete;
  ~CurlPeer() {
    curl_slist_free_all(recipients_);
    curl_easy_cleanup(curl_);
  }

  /// Sends a message, over the connection of the one before if there was one.
  void Send(std::string_view message) {
    rest_ = message;
    const auto size = static_cast<curl_off_t>(message.size());
    if (states_size_) curl_easy_setopt(curl_, CURLOPT_INFILESIZE_LARGE, size);
    if (curl_easy_perform(curl_) != CURLE_OK) std::abort();
  }

 private:
  static std::size_t Read(char* to, std::size_t size, std::size_t count, void* self) {
    auto& rest = *static_cast<std::string_view*>(self);
    const std::size_t length = rest.copy(to, size * count);
    rest.remove_prefix(length);
    return length;
  }

  bool states_size_;
  CURL* curl_;
  curl_slist* recipients_;
  std::string_view rest_;
};

}  // namespace benchmarks
