// SPDX-License-Identifier: MIT
// A program's end of the bench's Unix socket, which does what a test says: for one connection, in a
// thread of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/temporary_folder.h"

namespace corvane::bench {

class ScriptedProgram {
 public:
  using Socket = boost::asio::local::stream_protocol::socket;
  using WebSocket = boost::beast::websocket::stream<Socket&>;

  /// Octets instead of the protocol. The connection ends with the script.
  void Run(std::function<void(Socket&)> script) {
    thread_ = std::thread([this, script = std::move(script)] {
      try {
        Socket socket(context_);
        acceptor_.accept(socket);
        script(socket);
      } catch (const std::exception&) {
        // The client has ended the connection, which the test sees at its own end.
      }
    });
  }
  /// After the handshake (RFC 6455 clause 4).
  void RunProtocol(std::function<void(WebSocket&)> script) {
    Run([script = std::move(script)](Socket& socket) {
      WebSocket web_socket(socket);
      web_socket.accept();
      web_socket.text(true);
      script(web_socket);
      AwaitEnd(socket);
    });
  }
  ~ScriptedProgram() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  static void Say(WebSocket& to, const std::string& message) {
    to.write(boost::asio::buffer(message));
  }
  static std::string Hear(WebSocket& from) {
    boost::beast::flat_buffer buffer;
    from.read(buffer);
    const auto octets = buffer.cdata();
    return {static_cast<const char*>(octets.data()), octets.size()};
  }
  /// Reads a request up to its empty line.
  static std::string HearRequest(Socket& from) {
    std::string request;
    boost::asio::read_until(from, boost::asio::dynamic_buffer(request), "\r\n\r\n");
    return request;
  }
  static void SayOctets(Socket& to, const std::string& octets) {
    boost::asio::write(to, boost::asio::buffer(octets));
  }
  /// Until the client has gone.
  static void AwaitEnd(Socket& from) {
    boost::system::error_code error;
    std::string rest(4096, '\0');
    while (!error) from.read_some(boost::asio::buffer(rest), error);
  }

 private:
  test_support::TemporaryFolder folder_;
  std::filesystem::path path_ = folder_.path() / "pump.sock";
  boost::asio::io_context context_;
  boost::asio::local::stream_protocol::acceptor acceptor_{
      context_, boost::asio::local::stream_protocol::endpoint(path_.string())};
  std::thread thread_;
};

}  // namespace corvane::bench
