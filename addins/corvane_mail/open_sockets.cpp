// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/open_sockets.h"

#include <sys/socket.h>
#include <unistd.h>

namespace corvane_mail {

int OpenSockets::Open(int family, int type, int protocol) {
  const std::lock_guard guard(mutex_);
  if (is_shut_) return -1;
  const int descriptor = socket(family, type | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol);
  if (descriptor >= 0) descriptors_.insert(descriptor);
  return descriptor;
}

void OpenSockets::Close(int descriptor) {
  const std::lock_guard guard(mutex_);
  descriptors_.erase(descriptor);
  close(descriptor);
}

void OpenSockets::ShutDownAll() noexcept {
  const std::lock_guard guard(mutex_);
  is_shut_ = true;
  for (const int descriptor : descriptors_) shutdown(descriptor, SHUT_RDWR);
}

}  // namespace corvane_mail
