// SPDX-License-Identifier: MIT
// The blocks in a runtime with the contract alone: no announcements, no list of ports, no way to
// withdraw from the driver, no state folder.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>

#include "addins/corvane_sms/corvane_sms.h"
#include "corvane/program.h"
#include "tests/support/deliver_pdu.h"
#include "tests/support/fake_modem_port.h"
#include "tests/support/plain_runtime.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

std::atomic<int> clock_is_ahead;  // s

}  // namespace

extern "C" {

// NOLINTBEGIN: the linker's names
std::chrono::steady_clock::time_point __real__ZNSt6chrono3_V212steady_clock3nowEv();
std::chrono::steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  return __real__ZNSt6chrono3_V212steady_clock3nowEv() + std::chrono::seconds(clock_is_ahead);
}
// The system waits by its own clock, which is not ahead.
int __real_pthread_cond_clockwait(pthread_cond_t* changed, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* until);
int __wrap_pthread_cond_clockwait(pthread_cond_t* changed, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* until) {
  timespec of_system = *until;
  if (clock == CLOCK_MONOTONIC) of_system.tv_sec -= clock_is_ahead;
  return __real_pthread_cond_clockwait(changed, mutex, clock, &of_system);
}
// NOLINTEND
}

namespace {

class PlainRuntimeTest : public testing::Test {
 protected:
  PlainRuntimeTest() {
    setenv("STATE_DIRECTORY", folder_.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    runtime_.Load(InitAddin);
  }
  ~PlainRuntimeTest() override {
    runtime_.Close();
    DisposeAddin();
  }

  void Run(const std::string& chunk) { runtime_.Run(chunk); }
  std::string Eval(const std::string& expression) { return runtime_.Eval(expression); }
  /// Calls the block `fb`, and answers as a modem does, until a condition holds.
  bool CallUntil(const std::string& condition) {
    return test_support::WaitFor([&] {
      Run("fb()");
      AnswerModem();
      return Eval(condition) == "true";
    });
  }
  void AnswerModem() {
    for (std::string request = port_.Poll(); !request.empty(); request = port_.Poll()) {
      port_.Answer(AnswerTo(request));
    }
  }
  std::string AnswerTo(const std::string& request) {
    if (request.starts_with("AT+CMGS=")) return ">";
    if (request.starts_with("AT+CMGD=")) stored_.erase(std::stoi(request.substr(8)));
    if (request.starts_with("AT")) return request == "AT+CMGL=4\r" ? List() : "OK\r\n";
    ++sent_;
    return "+CMGS: 1\r\nOK\r\n";
  }
  [[nodiscard]] std::string List() const {
    std::string list;
    for (const auto& [index, pdu] : stored_) {
      list += "+CMGL: " + std::to_string(index) + ",0,,30\r\n" + pdu + "\r\n";
    }
    return list + "OK\r\n";
  }

  test_support::TemporaryFolder folder_;
  test_support::FakeModemPort port_{1};
  std::map<int, std::string> stored_;
  int sent_ = 0;
  test_support::PlainRuntime runtime_;
};

TEST_F(PlainRuntimeTest, HasNoAdditions) {
  EXPECT_TRUE(ModemPortDriverHasPort == nullptr);
  EXPECT_TRUE(ModemPortDriverListen == nullptr);
  EXPECT_TRUE(ModemPortDriverUnregister == nullptr);
  EXPECT_TRUE(CorvaneStateFolder == nullptr);
}

TEST_F(PlainRuntimeTest, AMessageGoesOut) {
  Run("fb = SMS_OUTBOX.new { Port = 1, Receiver = '110', Text = 'fire', Execute = true }");
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Eval("fb.Sent"), "1");
  EXPECT_EQ(Eval("fb.Stored"), "true");
  EXPECT_EQ(sent_, 1);
  EXPECT_TRUE(std::filesystem::exists(folder_.path() / "messages.db"));
}

TEST_F(PlainRuntimeTest, AnInboxReceivesByTheListThatItAsksForEveryThirtySeconds) {
  Run("fb = SMS_INBOX.new { Port = 1, Enable = true }");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  stored_[1] = test_support::TextMessage("hello").ToHex();
  for (int i = 0; i < 10; ++i) {
    Run("fb()");
    AnswerModem();
  }
  EXPECT_EQ(stored_.size(), 1u) << "nothing has announced it";
  clock_is_ahead += 31;
  ASSERT_TRUE(CallUntil("fb.Ready"));
  EXPECT_EQ(Eval("fb.Text"), "hello");
  Run("fb.Accept = true");
  ASSERT_TRUE(CallUntil("fb.Waiting == 0"));
  EXPECT_TRUE(stored_.empty());
}

TEST_F(PlainRuntimeTest, TheDriverMayAskAfterTheEnd) {
  Run("fb = SMS_INBOX.new { Port = 1, Enable = true }");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  clock_is_ahead += 31;
  ASSERT_TRUE(test_support::WaitFor([&] { return port_.Poll() == "AT+CMGF=0\r"; }));
  Run("fb = nil collectgarbage()");
  DisposeAddin();
  EXPECT_EQ(port_.Answer("OK\r\n"), 0);
  EXPECT_EQ(port_.Poll(), "");
}

}  // namespace
