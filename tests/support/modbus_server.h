// SPDX-License-Identifier: MIT
// A Modbus server on the loopback, made of libmodbus' server functions, which can also misbehave.
// Threads: one for each connection; the tests' own calls are safe beside them.
#pragma once

#include <modbus.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "libs/base/descriptor.h"

namespace test_support {

class ModbusServer {
 public:
  /// 100 coils and 100 discrete inputs, 200 holding and 200 input registers, all 0.
  /// @param port 0: any that is free
  explicit ModbusServer(int family = AF_INET, int port = 0);
  ModbusServer(const ModbusServer&) = delete;
  ModbusServer& operator=(const ModbusServer&) = delete;
  ~ModbusServer();

  [[nodiscard]] int port() const { return port_; }
  /// Since the beginning.
  [[nodiscard]] int connections() const { return connections_; }
  [[nodiscard]] int requests() const { return requests_; }
  /// Open at the moment.
  [[nodiscard]] int open_connections() const { return open_; }

  /// Reads or changes the tables.
  template <class Function>
  auto WithTables(const Function& function) {
    const std::scoped_lock lock(mutex_);
    return function(*tables_);
  }

  /// What it does about a request, on the thread of its connection.
  struct Peer {
    int socket;
    std::span<const std::uint8_t> request;  ///< from the transaction identifier on
    std::function<void()> reply;            ///< as it should be

    void Send(const std::vector<std::uint8_t>& octets) const;
    /// With the request's transaction identifier and unit.
    void SendAnswer(const std::vector<std::uint8_t>& pdu) const;
    void Close() const { shutdown(socket, SHUT_RDWR); }
  };
  /// From now on; without one it answers as it should.
  void React(std::function<void(const Peer&)> reaction);

 private:
  void Accept();
  void Serve(int socket);
  void Answer(modbus_t* context, const std::vector<std::uint8_t>& request);

  const corvane::Descriptor listening_;
  const int port_;
  std::mutex mutex_;  // guards the next ones
  std::unique_ptr<modbus_mapping_t, void (*)(modbus_mapping_t*)> tables_;
  std::function<void(const Peer&)> reaction_;
  std::set<int> sockets_;
  std::list<std::thread> threads_;  // the accepting one's, until the end
  std::atomic<int> connections_{0};
  std::atomic<int> requests_{0};
  std::atomic<int> open_{0};
  std::atomic<bool> ending_{false};
  std::thread accepting_;
};

/// A listening socket on the loopback that accepts nothing by itself.
[[nodiscard]] corvane::Descriptor Listen(int family, int port, int backlog);
[[nodiscard]] int PortOf(const corvane::Descriptor& listening);

}  // namespace test_support
