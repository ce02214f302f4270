// SPDX-License-Identifier: MIT
#include "runtime/cli/service_manager.h"

#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "libs/base/printable.h"

namespace corvane::cli {
namespace {

/// The variable's value; it is removed.
std::string TakeVariable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no other threads
  std::string text = value == nullptr ? "" : value;
  unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
  return text;
}

/// A whole number above 0; 0 for anything else.
std::int64_t ReadPositive(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && number > 0 ? number : 0;
}

}  // namespace

ServiceManager::ServiceManager() {
  const std::string path = TakeVariable("NOTIFY_SOCKET");
  const std::int64_t time = ReadPositive(TakeVariable("WATCHDOG_USEC"));
  const std::string process = TakeVariable("WATCHDOG_PID");
  const bool is_path = path.starts_with('/') || path.starts_with('@');  // @: an abstract name
  if (!is_path || path.size() >= sizeof address_.sun_path) return;
  address_.sun_family = AF_UNIX;
  std::memcpy(address_.sun_path, path.data(), path.size());
  if (path.front() == '@') address_.sun_path[0] = '\0';
  length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  constexpr std::int64_t kYear = std::int64_t{366} * 24 * 3600 * 1'000'000;
  const bool is_ours = process.empty() || ReadPositive(process) == getpid();
  if (is_ours && time <= kYear) watchdog_ = std::chrono::microseconds(time);
}

void ServiceManager::TellReady() {
  Tell("READY=1");
}

void ServiceManager::TellStatus(std::string_view status) {
  constexpr std::size_t kLongest = 500;
  Tell("STATUS=" + PrintableBeginning(status, kLongest));
}

void ServiceManager::TellStopping() {
  Tell("STOPPING=1");
}

void ServiceManager::TellCycle(std::uint64_t number) {
  constexpr std::chrono::seconds kInterval(10);
  const auto now = std::chrono::steady_clock::now();
  if (socket_.get() < 0 || now < next_cycle_.load()) return;
  next_cycle_ = now + kInterval;
  TellStatus(number == 0 ? std::string("the program's file is running")
                         : fmt::format("running, cycle {}", number));
}

void ServiceManager::TellAlive() {
  if (watchdog_ <= Nanoseconds(0)) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_alive_.load()) return;
  constexpr int kTimes = 4;  // one or two that are lost do no harm
  next_alive_ = now + watchdog_ / kTimes;
  Tell("WATCHDOG=1");
}

void ServiceManager::Tell(const std::string& message) {
  if (socket_.get() < 0) return;
  // A manager that has gone, or does not read, is its own concern.
  static_cast<void>(sendto(socket_.get(), message.data(), message.size(),
                           MSG_NOSIGNAL | MSG_DONTWAIT,
                           reinterpret_cast<const sockaddr*>(&address_), length_));
}

}  // namespace corvane::cli
