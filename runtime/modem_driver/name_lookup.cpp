// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/name_lookup.h"

#include <pthread.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <csignal>
#include <future>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace corvane {
namespace {

using boost::asio::ip::tcp;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

using Future = std::shared_future<LookupResult>;
using HostAndPort = std::pair<std::string, std::string>;

/// Look-ups whose results nobody has taken yet.
class Lookups {
 public:
  /// The look-up of this name that is under way, or a new one.
  /// @throws std::system_error if no thread can be started
  Future Begin(const HostAndPort& name, const Resolver& resolve) {
    const std::lock_guard guard(mutex_);
    const auto found = running_.find(name);
    if (found != running_.end()) return found->second;
    std::packaged_task<LookupResult()> task(
        [name, resolve] { return resolve(name.first, name.second); });
    Future result = task.get_future().share();
    Detach(std::move(task));
    running_.emplace(name, result);
    return result;
  }
  void Forget(const HostAndPort& name) {
    const std::lock_guard guard(mutex_);
    running_.erase(name);
  }

 private:
  /// The thread refers only to the task, so it may outlast everything else.
  static void Detach(std::packaged_task<LookupResult()> task) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);  // signals are for the threads that wait for them
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      std::thread(std::move(task)).detach();
    } catch (...) {
      pthread_sigmask(SIG_SETMASK, &before, nullptr);
      throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  std::mutex mutex_;
  std::map<HostAndPort, Future> running_;  // guarded by mutex_
};

Lookups& TheLookups() {
  static Lookups lookups;
  return lookups;
}

}  // namespace

LookupResult ResolveBySystem(const std::string& host, const std::string& service) {
  boost::asio::io_context context;
  boost::system::error_code error;
  const auto found =
      tcp::resolver(context).resolve(host, service, tcp::resolver::numeric_service, error);
  if (error) return {{}, error.message()};
  LookupResult result;
  for (const auto& entry : found) result.addresses.push_back(entry.endpoint());
  return result;
}

LookupResult LookUp(const std::string& host, const std::string& service, SteadyTime deadline,
                    WaitLoop& loop, const Resolver& resolve) {
  boost::system::error_code no_address;
  boost::asio::ip::make_address(host, no_address);
  if (!no_address) return ResolveBySystem(host, service);  // does not ask a name server
  const HostAndPort name{host, service};
  try {
    const Future result = TheLookups().Begin(name, resolve);
    while (result.wait_for(milliseconds(0)) != std::future_status::ready) {
      const auto now = steady_clock::now();
      if (loop.stopped() || now >= deadline) return {{}, "the name server does not answer"};
      loop.SleepUntil(std::min(deadline, now + milliseconds(10)));
    }
    TheLookups().Forget(name);
    return result.get();
  } catch (const std::system_error& error) {
    return {{}, error.code().message()};
  }
}

}  // namespace corvane
