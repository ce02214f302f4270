// SPDX-License-Identifier: MIT
// A serial line as a pseudo-terminal, with a stable name. The modem listens while a program has the
// terminal open; what it sends while none has is lost, as on a real line.
#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <filesystem>
#include <string>

#include "runtime/modem_simulator/line.h"
#include "runtime/modem_simulator/paced_writer.h"

namespace modem_simulator {

class PseudoTerminal : public Line {
 public:
  /// `link`: path of a symbolic link to the terminal; empty for none.
  PseudoTerminal(boost::asio::io_context& io, std::filesystem::path link, int bytes_per_second,
                 OnBytes on_bytes);
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  ~PseudoTerminal() override;

  void Plug() override;
  void Unplug() override;
  void Write(std::string_view bytes) override;
  [[nodiscard]] std::string Address() const override;

 private:
  void AwaitProgram();
  void Read();
  void ProgramLeft();
  void PointLink();
  void RemoveLink();

  std::filesystem::path link_;
  OnBytes on_bytes_;
  boost::asio::posix::stream_descriptor master_;
  PacedWriter<boost::asio::posix::stream_descriptor> writer_;
  boost::asio::steady_timer look_again_;
  std::string device_;
  bool open_ = false;  // a program has the terminal open
  std::array<char, 4096> input_{};
};

}  // namespace modem_simulator
