// SPDX-License-Identifier: MIT
#include "tests/support/failing_calls.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>
#include <utility>

namespace {

thread_local test_support::FailingCalls calls;
std::function<int(const sockaddr_in&)> connect_elsewhere;

int Fail(int error) {
  errno = error;
  return -1;
}

/// Counts down by one call; true if it is one too many.
bool UsedUp(int& left) {
  return left == 0 || (left > 0 && left-- == 0);
}

}  // namespace

namespace test_support {

CallsGuard::CallsGuard(FailingCalls failing) {
  calls = std::move(failing);
}

CallsGuard::~CallsGuard() {
  calls = {};
}

ConnectGuard::ConnectGuard(std::function<int(const sockaddr_in&)> connect) {
  connect_elsewhere = std::move(connect);
}

ConnectGuard::~ConnectGuard() {
  connect_elsewhere = {};
}

}  // namespace test_support

// The symbols depend on how size_t is mangled, and on the width of time_t.
#if __SIZEOF_POINTER__ == 8
#define NEW_ARRAY(prefix) prefix##_ZnamRKSt9nothrow_t
#define TIME(prefix) prefix##time
#define IOCTL(prefix) prefix##ioctl
#else
#define NEW_ARRAY(prefix) prefix##_ZnajRKSt9nothrow_t
#define TIME(prefix) prefix##__time64
#define IOCTL(prefix) prefix##__ioctl_time64
#endif

extern "C" {

std::time_t TIME(__real_)(std::time_t* result);
std::time_t TIME(__wrap_)(std::time_t* result) {
  return calls.time ? *calls.time : TIME(__real_)(result);
}

int __real_gethostname(char* name, std::size_t size);
int __wrap_gethostname(char* name, std::size_t size) {
  if (calls.host_name_fails) return Fail(EFAULT);
  if (!calls.host_name) return __real_gethostname(name, size);
  std::strncpy(name, calls.host_name->c_str(), size);
  return 0;
}

int IOCTL(__real_)(int descriptor, unsigned long request, void* argument);
int IOCTL(__wrap_)(int descriptor, unsigned long request, void* argument) {
  return calls.ioctl_fails ? Fail(EINVAL) : IOCTL(__real_)(descriptor, request, argument);
}

int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (UsedUp(calls.poll_fails_after)) return Fail(ENOMEM);
  if (calls.poll_reports) {
    descriptors[0].revents = *calls.poll_reports;
    return 1;
  }
  return __real_poll(descriptors, count, timeout);
}

int __real_connect(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  const auto& replaced = calls.connect ? calls.connect : connect_elsewhere;
  if (!replaced) return __real_connect(descriptor, address, length);
  return Fail(replaced(*reinterpret_cast<const sockaddr_in*>(address)));
}

ssize_t __real_send(int descriptor, const void* octets, std::size_t size, int flags);
ssize_t __wrap_send(int descriptor, const void* octets, std::size_t size, int flags) {
  return __real_send(descriptor, octets, std::min(size, calls.longest_send), flags);
}

int __real_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer,
                           std::size_t size, servent** result);
int __wrap_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer,
                           std::size_t size, servent** result) {
  if (!calls.no_mail_service && !calls.mail_service_never_fits) {
    return __real_getservbyname_r(name, protocol, entry, buffer, size, result);
  }
  *result = nullptr;
  return calls.mail_service_never_fits ? ERANGE : ENOENT;
}

void* NEW_ARRAY(__real_)(std::size_t size, const std::nothrow_t& tag);
void* NEW_ARRAY(__wrap_)(std::size_t size, const std::nothrow_t& tag) {
  return UsedUp(calls.array_allocations) ? nullptr : NEW_ARRAY(__real_)(size, tag);
}
}
