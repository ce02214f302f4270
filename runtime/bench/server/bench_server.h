// SPDX-License-Identifier: MIT
// Serves the bench: HTTP and WebSocket on TCP and on a Unix socket, in one thread.
#pragma once

#include <functional>
#include <memory>
#include <thread>

#include "libs/base/descriptor.h"
#include "runtime/bench/server/http_service.h"
#include "runtime/bench/server/hub.h"
#include "runtime/bench/server/listener.h"

namespace corvane::bench {

/// Where a server listens. They are opened before anything else begins, so that errors are
/// reported early.
struct Listeners {
  Descriptor tcp;                       ///< empty: there is no page
  std::unique_ptr<UnixListener> local;  ///< null: there is no folder for it
};

/// What a server serves; all of it is called on the server's thread.
struct Services {
  Hub::Topics topics;
  HttpService http;
  std::function<Frame()> hello;
  Hub::RequestHandler handler;
  std::function<void()> poll;  ///< five times a second
};

class BenchServer {
 public:
  /// Starts the thread.
  BenchServer(Listeners listeners, Services services);
  BenchServer(const BenchServer&) = delete;
  BenchServer& operator=(const BenchServer&) = delete;
  /// Disconnects everybody and ends the thread.
  ~BenchServer();

  /// Runs something on the server's thread, later. Any thread.
  void Post(std::function<void()> work);
  /// The greeting has changed. The server's thread.
  void GreetAll();

 private:
  class Core;
  std::unique_ptr<Core> core_;
  std::thread thread_;
};

}  // namespace corvane::bench
