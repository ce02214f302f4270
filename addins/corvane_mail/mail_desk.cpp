// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_desk.h"

#include <utility>

namespace corvane_mail {

std::shared_ptr<MailTicket> MailDesk::Submit(MailOrder order) {
  auto ticket = std::make_shared<MailTicket>();
  const std::string route = RouteOf(order.content.account);
  MailCommand command = Submission{std::move(order), ticket};
  const std::scoped_lock lock(mutex_);
  if (commands_.size() >= kMaxCommands) return nullptr;
  ++waiting_[route].submitted;
  commands_.push_back(std::move(command));
  WakeLocked();
  return ticket;
}

void MailDesk::Bring(Credentials credentials) {
  Push(std::move(credentials));
}

void MailDesk::Give(AttachmentsTaken taken) {
  Push(std::move(taken));
}

void MailDesk::Give(AttachmentsSaved saved) {
  Push(saved);
}

void MailDesk::Push(MailCommand command) {
  const std::scoped_lock lock(mutex_);
  commands_.push_back(std::move(command));
  WakeLocked();
}

std::shared_ptr<const MailState> MailDesk::StateOf(const MailTicket& ticket) {
  const std::scoped_lock lock(mutex_);
  return ticket.state;
}

int MailDesk::Waiting(const std::string& route) {
  const std::scoped_lock lock(mutex_);
  const auto place = waiting_.find(route);
  return place == waiting_.end() ? 0 : place->second.submitted + place->second.in_outbox;
}

std::vector<MailCommand> MailDesk::Take() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(commands_, {});
}

void MailDesk::Publish(MailTicket& ticket, MailState state) {
  auto next = std::make_shared<const MailState>(std::move(state));
  const std::scoped_lock lock(mutex_);
  ticket.state.swap(next);  // the old one is freed without the lock
}

void MailDesk::SetWaiting(const std::string& route, int in_outbox, int taken) {
  const std::scoped_lock lock(mutex_);
  const auto place = waiting_.try_emplace(route).first;
  place->second.submitted -= taken;
  place->second.in_outbox = in_outbox;
  if (place->second.submitted == 0 && in_outbox == 0) waiting_.erase(place);
}

void MailDesk::SetCarrier(MailCarrier* carrier) {
  const std::scoped_lock lock(mutex_);
  carrier_ = carrier;
  if (stopping_ && carrier_ != nullptr) carrier_->AbortAll();
}

void MailDesk::Wait(std::chrono::milliseconds longest) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, longest, [this] { return woken_; });
  woken_ = false;
}

void MailDesk::WakeLocked() noexcept {
  woken_ = true;
  changed_.notify_all();
  if (carrier_ != nullptr) carrier_->Wake();
}

void MailDesk::Wake() noexcept {
  const std::scoped_lock lock(mutex_);
  WakeLocked();
}

void MailDesk::Stop() noexcept {
  const std::scoped_lock lock(mutex_);
  stopping_ = true;
  if (carrier_ != nullptr) carrier_->AbortAll();
  WakeLocked();
}

bool MailDesk::stopping() noexcept {
  const std::scoped_lock lock(mutex_);
  return stopping_;
}

void MailDesk::SetEnded() noexcept {
  const std::scoped_lock lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

bool MailDesk::WaitForEnd(std::chrono::milliseconds longest) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, longest, [this] { return ended_; });
}

}  // namespace corvane_mail
