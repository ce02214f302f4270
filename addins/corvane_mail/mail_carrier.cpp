// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_carrier.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <stdexcept>
#include <utility>

#include "addins/corvane_mail/open_sockets.h"
#include "addins/corvane_mail/smtp_session.h"
#include "libs/base/descriptor.h"

namespace corvane_mail {
namespace {

/// The two lowest free numbers of descriptors.
std::array<int, 2> FreeDescriptors() {
  const corvane::Descriptor first(eventfd(0, EFD_CLOEXEC));
  const corvane::Descriptor second(eventfd(0, EFD_CLOEXEC));
  return {first.get(), second.get()};
}

/// The blocks of other add-ins start commands, which would inherit the pair of sockets that
/// curl_multi_wakeup uses: libcurl 7.88 does not close them on exec, and does not tell them.
CURLM* NewMultiClosedOnExec() {
  const std::array<int, 2> expected = FreeDescriptors();
  CURLM* const multi = curl_multi_init();
  for (const int descriptor : expected) {
    int family = 0;
    socklen_t size = sizeof family;
    getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &family, &size);
    if (family == AF_UNIX) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  }
  return multi;
}

CURLM* NewMulti() {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* const multi = ready == CURLE_OK ? NewMultiClosedOnExec() : nullptr;
  if (multi == nullptr) throw std::runtime_error("libcurl cannot be initialised");
  return multi;
}

short CurlEvents(short events) {
  return static_cast<short>(((events & POLLIN) != 0 ? CURL_WAIT_POLLIN : 0) |
                            ((events & POLLOUT) != 0 ? CURL_WAIT_POLLOUT : 0));
}

}  // namespace

class MailCarrier::Impl {
 public:
  using Clock = SmtpSession::Clock;

  explicit Impl(std::chrono::milliseconds keep_open)
      : multi_(NewMulti()), house_{multi_.get(), &sockets_, keep_open} {}

  void Begin(Attempt attempt) {
    const std::string route = RouteOf(attempt.account);
    sessions_.try_emplace(route, house_).first->second.Add(std::move(attempt));
  }

  std::vector<Outcome> Poll(std::chrono::milliseconds longest) {
    const auto end = Clock::now() + longest;
    for (;;) {
      Step();
      const bool is_woken = is_woken_.exchange(false);
      if (!outcomes_.empty() || is_woken || Clock::now() >= end) {
        return std::exchange(outcomes_, {});
      }
      Wait(end);
    }
  }

  [[nodiscard]] bool IsBusy(const std::string& route) const {
    const auto found = sessions_.find(route);
    return found != sessions_.end() && found->second.IsBusy();
  }

  void Abort(std::int64_t id) {
    for (auto& [route, session] : sessions_) session.Abort(id, "withdrawn", outcomes_);
  }

  void Wake() noexcept {
    is_woken_ = true;
    curl_multi_wakeup(multi_.get());
  }

  void AbortAll() noexcept {
    is_aborted_ = true;
    sockets_.ShutDownAll();  // ends whatever libcurl might be waiting for
    Wake();
  }

 private:
  void Step() {
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
      if (message->msg == CURLMSG_DONE) OnDone(message->easy_handle, message->data.result);
    }
    const auto now = Clock::now();
    for (auto& [route, session] : sessions_) {
      if (!is_aborted_) session.Advance(now, outcomes_);
    }
    if (is_aborted_) EndAll();
    std::erase_if(sessions_, [](const auto& entry) { return entry.second.IsOver(); });
  }

  void OnDone(const CURL* easy, CURLcode code) {
    for (auto& [route, session] : sessions_) {
      if (session.link() != nullptr && session.link()->Has(easy)) session.link()->OnDone(code);
    }
  }

  void EndAll() {
    const std::string reason = "withdrawn, since the program ends";
    for (auto& [route, session] : sessions_) session.AbortAll(reason, outcomes_);
    // What a session found out when its connection was cut.
    for (Outcome& outcome : outcomes_) {
      if (outcome.end == End::kForNow) outcome.end = End::kAborted;
    }
  }

  void Wait(Clock::time_point end) {
    std::vector<curl_waitfd> descriptors;
    for (const auto& [route, session] : sessions_) {
      const SmtpSession::Wants wants = session.wants();
      end = std::min(end, wants.deadline);
      if (wants.descriptor >= 0) {
        descriptors.push_back({wants.descriptor, CurlEvents(wants.events), 0});
      }
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::min(end, Clock::now()));
    curl_multi_poll(multi_.get(), descriptors.data(), static_cast<unsigned>(descriptors.size()),
                    static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000)),
                    nullptr);
  }

  struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  OpenSockets sockets_;
  std::unique_ptr<CURLM, FreeMulti> multi_;
  SmtpSession::House house_;
  std::map<std::string, SmtpSession> sessions_;
  std::vector<Outcome> outcomes_;
  std::atomic<bool> is_woken_ = false;
  std::atomic<bool> is_aborted_ = false;
};

MailCarrier::MailCarrier(std::chrono::milliseconds keep_open)
    : impl_(std::make_unique<Impl>(keep_open)) {}

MailCarrier::~MailCarrier() = default;

void MailCarrier::Begin(Attempt attempt) {
  impl_->Begin(std::move(attempt));
}

std::vector<Outcome> MailCarrier::Poll(std::chrono::milliseconds longest) {
  return impl_->Poll(longest);
}

bool MailCarrier::IsBusy(const std::string& route) const {
  return impl_->IsBusy(route);
}

void MailCarrier::Abort(std::int64_t id) {
  impl_->Abort(id);
}

void MailCarrier::Wake() noexcept {
  impl_->Wake();
}

void MailCarrier::AbortAll() noexcept {
  impl_->AbortAll();
}

}  // namespace corvane_mail
