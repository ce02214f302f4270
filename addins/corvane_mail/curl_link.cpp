// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/curl_link.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace corvane_mail {
namespace {

using namespace std::chrono_literals;

/// Longer than anything that libcurl waits for: the deadlines are ours.
constexpr auto kNever = 24h;

bool IsLoopback(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    return ntohl(v4.sin_addr.s_addr) >> 24 == 127;
  }
  const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
  if (address.sa_family != AF_INET6) return false;
  const bool is_mapped = IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr) != 0;
  return is_mapped ? v6.sin6_addr.s6_addr[12] == 127 : IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr) != 0;
}

template <class Value>
void SetOption(CURL* easy, CURLoption option, Value value) {
  // It fails without memory, or where libcurl was built without what every Debian has.
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) {
    throw std::runtime_error("libcurl does not take option " + std::to_string(option));
  }
}

template <class Duration>
long Count(std::chrono::milliseconds time) {
  return static_cast<long>(std::chrono::ceil<Duration>(time).count());
}

}  // namespace

CurlLink::CurlLink(Account account, CURLM* multi, OpenSockets& sockets)
    : account_(std::move(account)),
      multi_(multi),
      sockets_(&sockets),
      url_(MakeServerUrl(account_)),
      easy_(curl_easy_init()) {
  if (!url_)
    throw std::runtime_error(ServerOf(account_) + " is not a name or an address; correct Server");
  if (!easy_) throw std::runtime_error("libcurl has no memory");
  SetOptions();
  if (curl_multi_add_handle(multi_, easy_.get()) != CURLM_OK) {
    throw std::runtime_error("libcurl has no memory");
  }
}

CurlLink::~CurlLink() {
  curl_multi_remove_handle(multi_, easy_.get());
}

void CurlLink::SetOptions() {
  CURL* const easy = easy_.get();
  SetOption(easy, CURLOPT_CURLU, url_.get());
  SetOption(easy, CURLOPT_CONNECT_ONLY, 1L);
  SetOption(easy, CURLOPT_NOSIGNAL, 1L);
  SetOption(easy, CURLOPT_QUICK_EXIT, 1L);  // a name service that hangs does not hold up the end
  SetOption(easy, CURLOPT_PROXY, "");       // whatever the environment says
  // While it connects, libcurl divides the time among the server's addresses.
  SetOption(easy, CURLOPT_CONNECTTIMEOUT_MS, Count<std::chrono::milliseconds>(account_.timeout));
  SetOption(easy, CURLOPT_SERVER_RESPONSE_TIMEOUT, Count<std::chrono::seconds>(kNever));

  SetOption(easy, CURLOPT_USE_SSL,
            static_cast<long>(account_.security == Security::kStartTls ? CURLUSESSL_ALL
                                                                       : CURLUSESSL_NONE));
  SetOption(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!account_.ca_file.empty()) {
    SetOption(easy, CURLOPT_CAINFO, account_.ca_file.c_str());
    SetOption<const char*>(easy, CURLOPT_CAPATH, nullptr);  // the system's are not trusted, too
  }

  SetOption(easy, CURLOPT_ERRORBUFFER, detail_.data());
  SetOption(easy, CURLOPT_VERBOSE, 1L);  // otherwise Debug is not called
  SetOption(easy, CURLOPT_DEBUGFUNCTION, &CurlLink::Debug);
  SetOption(easy, CURLOPT_DEBUGDATA, this);
  SetOption(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlLink::Open);
  SetOption(easy, CURLOPT_OPENSOCKETDATA, this);
  SetOption(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlLink::Close);
  SetOption(easy, CURLOPT_CLOSESOCKETDATA, sockets_);
}

void CurlLink::OnDone(CURLcode code) {
  if (state_ != State::kOpening) return;
  curl_socket_t descriptor = CURL_SOCKET_BAD;
  curl_easy_getinfo(easy_.get(), CURLINFO_ACTIVESOCKET, &descriptor);
  descriptor_ = descriptor;
  if (code != CURLE_OK || descriptor == CURL_SOCKET_BAD) {
    Fail(code == CURLE_OK ? CURLE_COULDNT_CONNECT : code);
    return;
  }
  state_ = State::kOpen;
}

void CurlLink::Watch(Clock::time_point now) {
  if (state_ != State::kOpening) return;
  curl_off_t connected_after = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_CONNECT_TIME_T, &connected_after);
  if (connected_after > 0 && !is_connected_) {
    is_connected_ = true;
    last_progress_ = now;
    SetOption(easy_.get(), CURLOPT_CONNECTTIMEOUT_MS, Count<std::chrono::milliseconds>(kNever));
  }
  if (now >= deadline()) Fail(CURLE_OPERATION_TIMEDOUT);
}

void CurlLink::Fail(CURLcode code) {
  state_ = State::kFailed;
  code_ = code;
}

Failure CurlLink::failure() const {
  OpeningFacts facts;
  facts.code = code_;
  facts.detail = detail_.data();
  long number = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &number);
  facts.system_error = static_cast<int>(number);
  curl_easy_getinfo(easy_.get(), CURLINFO_SSL_VERIFYRESULT, &facts.verify_result);
  facts.last_reply = last_reply_;
  facts.asked_for_tls = command_ == "STARTTLS";
  facts.is_remote_login = is_remote_login_;
  return DescribeOpening(account_, facts);
}

CurlLink::Moved CurlLink::Send(std::string_view octets) {
  Moved moved;
  const CURLcode code = curl_easy_send(easy_.get(), octets.data(), octets.size(), &moved.octets);
  moved.is_lost = code != CURLE_OK && code != CURLE_AGAIN;
  return moved;
}

CurlLink::Moved CurlLink::Receive(std::span<char> octets) {
  Moved moved;
  const CURLcode code = curl_easy_recv(easy_.get(), octets.data(), octets.size(), &moved.octets);
  moved.is_lost = code == CURLE_OK ? moved.octets == 0 : code != CURLE_AGAIN;
  return moved;
}

void CurlLink::OnCommand(std::string_view command) {
  last_progress_ = Clock::now();
  command_ = command.substr(0, command.find_first_of(" \r\n"));
  if (command_ == "EHLO") features_ = {};
}

void CurlLink::OnReply(std::string_view octets) {
  while (!octets.empty()) {
    octets.remove_prefix(reader_.Feed(octets));
    switch (reader_.state()) {
      case ReplyReader::State::kMore: return;
      case ReplyReader::State::kComplete:
        last_progress_ = Clock::now();
        if (command_ == "EHLO") {
          for (const std::string& line : reader_.lines()) ReadFeature(line, features_);
        }
        last_reply_ = reader_.Take();
        break;
      case ReplyReader::State::kInvalid:
      case ReplyReader::State::kTooLong:  // libcurl decides what becomes of it
        reader_.Clear();
        break;
    }
  }
}

int CurlLink::OpenSocket(const curl_sockaddr& address) {
  const bool needs_safety = account_.security == Security::kNone && !account_.user.empty();
  if (needs_safety && !account_.insecure && !IsLoopback(address.addr)) {
    is_remote_login_ = true;
    return CURL_SOCKET_BAD;
  }
  is_remote_login_ = false;
  return sockets_->Open(address.family, address.socktype, address.protocol);
}

int CurlLink::Debug(CURL*, curl_infotype type, char* data, std::size_t size, void* link) {
  if (type == CURLINFO_HEADER_OUT) static_cast<CurlLink*>(link)->OnCommand({data, size});
  if (type == CURLINFO_HEADER_IN) static_cast<CurlLink*>(link)->OnReply({data, size});
  return 0;
}

curl_socket_t CurlLink::Open(void* link, curlsocktype, curl_sockaddr* address) {
  return static_cast<CurlLink*>(link)->OpenSocket(*address);
}

int CurlLink::Close(void* sockets, curl_socket_t descriptor) {
  static_cast<OpenSockets*>(sockets)->Close(descriptor);
  return 0;
}

}  // namespace corvane_mail
