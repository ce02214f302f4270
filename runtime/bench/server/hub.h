// SPDX-License-Identifier: MIT
// Who looks at what: passes on what the topics have, and the clients' requests.
// Threads: the server's.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "runtime/bench/server/client_message.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

/// A client that is connected.
class Client {
 public:
  Client() = default;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  virtual ~Client() = default;

  /// Queues a frame; a client that reads too slowly is disconnected, soon. Never waits.
  virtual void Send(const std::shared_ptr<const Frame>& frame) = 0;
  /// Who it is, for the log: "192.168.1.7:51234", "user 1000, process 4711".
  [[nodiscard]] virtual const std::string& who() const = 0;
  /// It came through the Unix socket, so the system has let it in.
  [[nodiscard]] virtual bool is_local() const = 0;
};

/// A request of a client other than a subscription.
struct ClientRequest {
  std::string who;
  bool is_local = false;  ///< see Client
  ClientMessage message;
};

/// Called once, on the server's thread: what was wrong, or empty, and a frame for the client that
/// is sent first, or empty.
using RequestDone = std::function<void(const std::string& error, const Frame& frame)>;

class Hub {
 public:
  using Topics = std::map<std::string, std::unique_ptr<Topic>, std::less<>>;
  using RequestHandler = std::function<void(const ClientRequest&, RequestDone)>;

  /// @param hello the frame for a new client
  Hub(Topics topics, std::function<Frame()> hello, RequestHandler handler)
      : topics_(std::move(topics)), hello_(std::move(hello)), handler_(std::move(handler)) {}

  void Join(Client& client);
  void Leave(Client& client);
  void Receive(Client& client, std::string_view text);
  /// Sends what has changed; new subscribers get everything.
  void Tick();
  /// Sends the greeting again, since something in it has changed.
  void GreetAll();
  [[nodiscard]] std::size_t clients() const { return clients_.size(); }

 private:
  struct Subscription {
    bool is_new = true;
  };
  struct Member {
    Client* client;
    std::map<std::string, Subscription, std::less<>> topics;
  };

  void Subscribe(Member& member, const SubscribeRequest& request);
  void UpdateWatched();
  void Answer(std::uint64_t member, std::optional<std::int64_t> request, const std::string& error,
              const Frame& frame);
  void Send(const std::string& topic, bool to_new, const std::vector<Frame>& frames);

  Topics topics_;
  std::function<Frame()> hello_;
  RequestHandler handler_;
  std::map<std::uint64_t, Member> clients_;  // an answer may come after its client has gone
  std::set<std::string, std::less<>> watched_;
  std::uint64_t last_ = 0;
};

}  // namespace corvane::bench
