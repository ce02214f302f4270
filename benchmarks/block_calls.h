// SPDX-License-Identifier: MIT
// How long single calls of blocks take on a bad day, and what makes the day bad: a peer that
// accepts and says nothing, and a disk that stalls under every SQLite database of the process.
#pragma once

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/shim_vfs.h"

namespace benchmarks {

/// Connections are accepted by the kernel, and nobody reads or writes.
class SilentPort {
 public:
  SilentPort() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, any, size) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, any, &size) != 0) {
      std::abort();
    }
    port_ = ntohs(address.sin_port);
  }
  SilentPort(const SilentPort&) = delete;
  SilentPort& operator=(const SilentPort&) = delete;
  ~SilentPort() { close(listener_); }
  [[nodiscard]] int port() const { return port_; }

 private:
  int listener_;
  int port_ = 0;
};

/// The disk of every SQLite database in this process.
class Disk {
 public:
  static Disk& The() {
    static Disk disk;
    return disk;
  }
  /// Writing does not go on before this time has passed.
  void StallFor(std::chrono::milliseconds time) {
    held_ = Clock::duration{0};
    until_ = (Clock::now() + time).time_since_epoch();
  }
  /// How long a thread that wanted to write was held since StallFor, in seconds.
  [[nodiscard]] double held() const { return std::chrono::duration<double>(held_.load()).count(); }

 private:
  using Clock = std::chrono::steady_clock;

  Disk() { sqlite3_vfs_register(sqlite3_vfs_find(shim_.name().c_str()), /*makeDflt=*/1); }

  int Hold() {
    const auto begin = Clock::now();
    const Clock::time_point until(until_.load());
    if (begin >= until) return SQLITE_OK;
    std::this_thread::sleep_until(until);
    held_ = Clock::now() - begin;
    return SQLITE_OK;
  }

  std::atomic<Clock::duration> until_{Clock::duration{0}};
  std::atomic<Clock::duration> held_{Clock::duration{0}};
  test_support::ShimVfs shim_{[this](const test_support::DiskCall& /*call*/) { return Hold(); }};
};

inline double Seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// How often the kernel gave this thread's processor to another that wanted it, too. A thread that
/// waits of its own accord, for a lock or a disk, does not count.
inline long Preemptions() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

struct Sample {
  double wall = 0, cpu = 0;  // seconds
  bool preempted = false;
};

template <class Host>
Sample Measure(const Host& host, const char* function, int argument = 0) {
  const long preemptions = Preemptions();
  const double cpu = Seconds(CLOCK_THREAD_CPUTIME_ID);
  const double wall = Seconds(CLOCK_MONOTONIC);
  host.Call(function, argument);
  const double wall_after = Seconds(CLOCK_MONOTONIC);
  const double cpu_after = Seconds(CLOCK_THREAD_CPUTIME_ID);
  return {wall_after - wall, cpu_after - cpu, Preemptions() != preemptions};
}

inline void Report(benchmark::State& state, const std::string& name, std::vector<Sample> samples) {
  std::ranges::sort(samples, {}, &Sample::wall);
  auto& counters = state.counters;
  counters[name + "_calls"] = static_cast<double>(samples.size());
  counters[name + "_worst"] = samples.back().wall;
  counters[name + "_median"] = samples[samples.size() / 2].wall;
  counters[name + "_p99"] = samples[samples.size() * 99 / 100].wall;
  counters[name + "_worst_cpu"] = std::ranges::max(samples, {}, &Sample::cpu).cpu;
  counters[name + "_preempted"] =
      static_cast<double>(std::ranges::count(samples, true, &Sample::preempted));
  std::erase_if(samples, &Sample::preempted);
  counters[name + "_worst_undisturbed"] = samples.empty() ? 0 : samples.back().wall;
}

/// Resident memory of the process, in bytes.
inline double Resident() {
  std::ifstream file("/proc/self/statm");
  std::size_t size = 0, resident = 0;
  file >> size >> resident;
  return static_cast<double>(resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
}

}  // namespace benchmarks
