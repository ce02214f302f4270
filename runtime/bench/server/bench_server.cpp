// SPDX-License-Identifier: MIT
#include "runtime/bench/server/bench_server.h"

#include <spdlog/spdlog.h>

#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <utility>
#include <vector>

#include "runtime/bench/server/acceptor.h"
#include "runtime/bench/server/background_thread.h"
#include "runtime/bench/server/connection.h"

namespace corvane::bench {
namespace {

constexpr std::chrono::milliseconds kTick(200);

}  // namespace

/// The connections refer to the hub, and end with the context.
class BenchServer::Core {
 public:
  // cppcheck-suppress passedByValue ; its members are moved
  Core(Listeners listeners, Services services)
      : http_(std::move(services.http)),
        hub_(std::move(services.topics), std::move(services.hello), std::move(services.handler)),
        poll_(std::move(services.poll)),
        local_(std::move(listeners.local)) {
    if (listeners.tcp.get() >= 0) Listen(std::move(listeners.tcp));
    if (local_ != nullptr) Listen(local_->Take());
  }

  [[nodiscard]] bool listens() const { return !acceptors_.empty(); }
  [[nodiscard]] Hub& hub() { return hub_; }
  [[nodiscard]] boost::asio::io_context& context() { return context_; }

  void Run() {
    BecomeBackgroundThread("bench");
    Tick();
    while (!context_.stopped()) {
      try {
        context_.run();
      } catch (const std::exception& error) {  // one request must not end the program
        spdlog::error("bench: {}", error.what());
      }
    }
  }

 private:
  void Listen(Descriptor descriptor) {
    auto shared = std::make_shared<ConnectionsShared>(ConnectionsShared{hub_, http_});
    acceptors_.push_back(std::make_unique<Acceptor>(
        context_, std::move(descriptor), [shared = std::move(shared)](Arrival arrival) {
          std::make_shared<Connection>(std::move(arrival), shared)->Start();
        }));
  }

  void Tick() {
    tick_.expires_after(kTick);
    tick_.async_wait([this](const boost::system::error_code& error) {
      if (error) return;
      Tick();
      hub_.Tick();
      poll_();
    });
  }

  HttpService http_;
  Hub hub_;
  std::function<void()> poll_;
  std::unique_ptr<UnixListener> local_;
  boost::asio::io_context context_{1};
  boost::asio::steady_timer tick_{context_};
  std::vector<std::unique_ptr<Acceptor>> acceptors_;
};

BenchServer::BenchServer(Listeners listeners, Services services)
    : core_(std::make_unique<Core>(std::move(listeners), std::move(services))) {
  if (core_->listens()) thread_ = std::thread([this] { core_->Run(); });
}

BenchServer::~BenchServer() {
  core_->context().stop();
  if (thread_.joinable()) thread_.join();
}

void BenchServer::Post(std::function<void()> work) {
  boost::asio::post(core_->context(), std::move(work));
}

void BenchServer::GreetAll() {
  core_->hub().GreetAll();
}

}  // namespace corvane::bench
