// SPDX-License-Identifier: MIT
// A serial line behind a serial device server: one TCP connection at a time, raw bytes.
#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <string>

#include "runtime/modem_simulator/line.h"
#include "runtime/modem_simulator/paced_writer.h"

namespace modem_simulator {

class TcpPort : public Line {
 public:
  /// `address`: HOST:PORT, port 0..65535; 0: the system chooses one, which is then kept.
  /// Throws std::runtime_error if it is not one.
  TcpPort(boost::asio::io_context& io, const std::string& address, int bytes_per_second,
          OnBytes on_bytes);

  void Plug() override;
  void Unplug() override;
  void Write(std::string_view bytes) override;
  [[nodiscard]] std::string Address() const override;

 private:
  using Tcp = boost::asio::ip::tcp;

  void Accept();
  void Admit(Tcp::socket connection);
  void Read();
  void Disconnect();

  OnBytes on_bytes_;
  Tcp::endpoint endpoint_;
  Tcp::acceptor acceptor_;
  Tcp::socket socket_;
  PacedWriter<Tcp::socket> writer_;
  std::array<char, 4096> input_{};
};

}  // namespace modem_simulator
