// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/name_lookup.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "tests/support/wait_for.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// A name server that answers when the test wants it. Shared, since a look-up outlasts its test.
struct NameServer {
  std::promise<void> promise;
  std::shared_future<void> answers = promise.get_future().share();
  std::atomic<int> asked{0};
};

Resolver Asking(const std::shared_ptr<NameServer>& server) {
  return [server](const std::string&, const std::string& service) {
    ++server->asked;
    server->answers.wait();
    const auto port = static_cast<unsigned short>(std::stoi(service));
    return LookupResult{{{boost::asio::ip::make_address("192.0.2.7"), port}}, {}};
  };
}

TEST(NameLookup, AnAddressNeedsNoNameServer) {
  WaitLoop loop;
  const auto server = std::make_shared<NameServer>();
  const auto found =
      LookUp("127.0.0.1", "4001", steady_clock::now() + seconds(20), loop, Asking(server));
  ASSERT_EQ(found.addresses.size(), 1u);
  EXPECT_EQ(found.addresses[0].port(), 4001);
  EXPECT_EQ(LookUp("::1", "4001", steady_clock::now(), loop, Asking(server)).addresses.size(), 1u);
  EXPECT_EQ(server->asked, 0);
}

TEST(NameLookup, TheSystemKnowsLocalhost) {
  WaitLoop loop;
  const auto found =
      LookUp("localhost", "4001", steady_clock::now() + test_support::kPatience, loop);
  ASSERT_FALSE(found.addresses.empty()) << found.error;
  EXPECT_TRUE(found.addresses[0].address().is_loopback());
}

TEST(NameLookup, ANameServerThatDoesNotAnswerIsAskedOnceAndDelaysNobody) {
  const auto server = std::make_shared<NameServer>();
  {
    WaitLoop loop;
    for (int attempt = 0; attempt < 3; ++attempt) {
      const auto found = LookUp("slow.invalid", "4001", steady_clock::now() + milliseconds(20),
                                loop, Asking(server));
      EXPECT_TRUE(found.addresses.empty());
      EXPECT_EQ(found.error, "the name server does not answer");
    }
    std::thread stopper([&loop] { loop.Stop(); });
    const auto found = LookUp("slow.invalid", "4001", steady_clock::now() + std::chrono::hours(1),
                              loop, Asking(server));
    stopper.join();
    EXPECT_TRUE(found.addresses.empty());
  }
  EXPECT_TRUE(test_support::WaitFor([&server] { return server->asked == 1; }));
  server->promise.set_value();
  WaitLoop loop;
  const auto found = LookUp("slow.invalid", "4001", steady_clock::now() + test_support::kPatience,
                            loop, Asking(server));
  ASSERT_EQ(found.addresses.size(), 1u) << "what the first look-up found";
  EXPECT_EQ(found.addresses[0].port(), 4001);
  EXPECT_EQ(server->asked, 1);
}

TEST(NameLookup, AFailureIsReportedAndTheNameIsAskedForAgain) {
  WaitLoop loop;
  int asked = 0;
  const Resolver refuse = [&asked](const std::string&, const std::string&) {
    ++asked;
    return LookupResult{{}, "Host not found"};
  };
  for (int attempt = 1; attempt <= 2; ++attempt) {
    const auto found =
        LookUp("no.invalid", "4001", steady_clock::now() + test_support::kPatience, loop, refuse);
    EXPECT_EQ(found.error, "Host not found");
    EXPECT_EQ(asked, attempt);
  }
}

}  // namespace
}  // namespace corvane
