// SPDX-License-Identifier: MIT
// What the modem port driver adds to the modem's own time: exchanges with a peer on a
// pseudo-terminal, which has no wire time and answers at once, and the cost of waiting for work.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "runtime/modem_driver/modem_port_driver.h"
#include "tests/support/modem_peer.h"

namespace {

using corvane::TheScanLock;

const std::string kPdu =
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
constexpr int kMessages = 30;

std::string ListAnswer() {
  std::string list = "\r\n";
  for (int i = 1; i <= kMessages; ++i) {
    list += "+CMGL: " + std::to_string(i) + ",0,,30\r\n" + kPdu + "\r\n";
  }
  return list + "\r\nOK\r\n";
}

void AnswerAtOnce(test_support::ModemPeer& peer, const std::string& request) {
  static const std::string list = ListAnswer();
  if (request == "AT+CMGL=0\r") {
    peer.Send(list);
  } else if (request.rfind("AT+CMGS=", 0) == 0) {
    peer.Send("\r\n> ");
  } else if (request.back() == '\x1A') {
    peer.Send("\r\n+CMGS: 1\r\n\r\nOK\r\n");
  } else {
    peer.Send("\r\nOK\r\n");
  }
}

/// Carries out a dialogue once each time it is started, as a block does.
class Client {
 public:
  explicit Client(std::vector<std::string> dialogue) : dialogue_(std::move(dialogue)) {
    const std::lock_guard guard(TheScanLock());
    if (ModemPortDriverRegister(1, this, Priority, Request, nullptr) != 0) std::abort();
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    const std::lock_guard guard(TheScanLock());
    ModemPortDriverUnregister(this);
  }
  void Run() {
    {
      const std::lock_guard guard(TheScanLock());
      step_ = 0;
    }
    std::unique_lock guard(mutex_);
    done_.wait(guard, [this] { return finished_; });
    finished_ = false;
  }

 private:
  static int Priority(void* context) {
    const auto& self = *static_cast<Client*>(context);
    return self.step_ < self.dialogue_.size() ? 1 : 0;
  }
  static int Request(void* context, char* buffer, PortDriverRequestData* data,
                     PortDriverReplyFunction* on_reply) {
    const auto& self = *static_cast<Client*>(context);
    const std::string& request = self.dialogue_[self.step_];
    std::copy(request.begin(), request.end(), buffer);
    data->timeout = 2000;
    *on_reply = OnReply;
    return static_cast<int>(request.size());
  }
  static int OnReply(void* context, char* /*reply*/, int /*length*/, int status) {
    auto& self = *static_cast<Client*>(context);
    if (status < 0) std::abort();
    if (++self.step_ < self.dialogue_.size()) return 1;
    const std::lock_guard guard(self.mutex_);
    self.finished_ = true;
    self.done_.notify_one();
    return 0;
  }

  std::vector<std::string> dialogue_;
  std::size_t step_ = SIZE_MAX;  // guarded by the scan lock
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
};

struct Port {
  test_support::ModemPeer peer{AnswerAtOnce};
  corvane::ModemPortDriver driver{corvane::ParseModemTargets({"1=" + peer.Target()}),
                                  TheScanLock()};
};

void RunDialogue(benchmark::State& state, const std::vector<std::string>& dialogue) {
  Port port;
  Client client(dialogue);
  client.Run();  // setting the modem up is not measured
  std::mt19937 random(1);
  for (auto _ : state) {
    state.PauseTiming();  // a program may want something at any time between two polls
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    state.ResumeTiming();
    client.Run();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(dialogue.size()));
}

/// A pass over 30 stored messages: 32 exchanges, including the wait for the first poll.
void Pass(benchmark::State& state) {
  std::vector<std::string> dialogue{"AT+CMGF=0\r", "AT+CMGL=0\r"};
  for (int i = 1; i <= kMessages; ++i) dialogue.push_back("AT+CMGD=" + std::to_string(i) + "\r");
  RunDialogue(state, dialogue);
}
BENCHMARK(Pass)->UseRealTime()->Iterations(50);

/// A message of one part: 3 exchanges, including the wait for the first poll.
void Message(benchmark::State& state) {
  RunDialogue(state, {"AT+CMGF=0\r", "AT+CMGS=29\r", kPdu + "\x1A"});
}
BENCHMARK(Message)->UseRealTime()->Iterations(200);

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// The share of a core that a driver uses when its two clients want nothing.
void Idle(benchmark::State& state) {
  Port port;
  const Client reader({});
  const Client sender({});
  constexpr std::chrono::seconds kTime(5);
  std::this_thread::sleep_for(std::chrono::seconds(1));  // the set-up of the modem
  for (auto _ : state) {
    const double before = CpuSeconds();
    std::this_thread::sleep_for(kTime);
    state.counters["percent_of_a_core"] =
        100 * (CpuSeconds() - before) / static_cast<double>(kTime.count());
  }
}
BENCHMARK(Idle)->UseRealTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
