// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/serial_line.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/serial_port.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <system_error>
#include <utility>

#include "libs/base/descriptor.h"
#include "runtime/modem_driver/name_lookup.h"
#include "runtime/modem_driver/read_allowance.h"

namespace corvane {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using std::chrono::steady_clock;

constexpr auto kConnectTime = std::chrono::seconds(5);

/// A line over an open Boost.Asio stream. One read is always under way, so a vanished device is
/// noticed whenever the loop runs.
template <class Stream>
class AsioLine : public SerialLine {
 public:
  AsioLine(Stream stream, WaitLoop& loop) : loop_(loop), stream_(std::move(stream)) {}
  AsioLine(const AsioLine&) = delete;
  AsioLine& operator=(const AsioLine&) = delete;
  // NOLINTNEXTLINE(bugprone-exception-escape): its handlers throw nothing
  ~AsioLine() override {
    Discard();
    // A pseudo-terminal would stay exclusive as long as its other end is open.
    if constexpr (kIsDevice) ioctl(stream_.native_handle(), TIOCNXCL);
    boost::system::error_code ignored;
    stream_.close(ignored);
    while (reading_ || writing_) loop_.io().run_one();  // their handlers refer to this
  }

  std::string_view Read(SteadyTime deadline) override {
    if (received_ == 0 && loss_.empty() && MayRead(deadline)) {
      if (!reading_) StartReading();
      loop_.RunUntil(deadline, [this] { return !reading_; });
    }
    if (loop_.stopped()) return {};  // a peer that never pauses would delay the end
    return {room_.data(), std::exchange(received_, 0)};
  }

  bool Write(std::string_view octets, SteadyTime deadline) override {
    written_ = 0;
    if (!loss_.empty()) return false;
    outgoing_ = octets;
    bool all_written = false;
    asio::async_write(
        stream_, asio::buffer(outgoing_),
        [this, &all_written](const boost::system::error_code& error, std::size_t length) {
          writing_ = false;
          written_ = length;
          all_written = !error;
          if (error && error != asio::error::operation_aborted) Lose(error);
        });
    writing_ = true;  // not before, since starting it may fail for lack of memory
    if (loop_.RunUntil(deadline, [this] { return !writing_; })) return all_written;
    boost::system::error_code ignored;
    stream_.cancel(ignored);  // the read, too; the next Read() starts it again
    while (writing_) loop_.io().run_one();
    Discard();
    return false;
  }

  std::size_t written() const override { return written_; }
  const std::string& loss() const override { return loss_; }

 private:
  static constexpr bool kIsDevice = std::is_same_v<Stream, asio::serial_port>;

  /// Waits until the allowance lets the line be read, but not beyond the deadline.
  bool MayRead(SteadyTime deadline) {
    const SteadyTime next = allowance_.Next(steady_clock::now());
    if (next > steady_clock::now()) loop_.SleepUntil(std::min(next, deadline));
    return !loop_.stopped() && received_ == 0 && steady_clock::now() >= next;
  }

  void StartReading() {
    stream_.async_read_some(asio::buffer(room_),
                            [this](const boost::system::error_code& error, std::size_t length) {
                              reading_ = false;
                              received_ = length;
                              if (length > 0) allowance_.Use(length);
                              if (error && error != asio::error::operation_aborted) Lose(error);
                            });
    reading_ = true;
  }

  void Lose(const boost::system::error_code& error) {
    if (!loss_.empty()) return;
    // The system reports an unplugged serial device as an end of file.
    loss_ = error == asio::error::eof ? "the other end is gone" : error.message();
  }

  /// Drops what the system has not yet sent: closing would wait for it.
  void Discard() {
    if constexpr (kIsDevice) tcflush(stream_.native_handle(), TCIOFLUSH);
  }

  WaitLoop& loop_;
  Stream stream_;
  ReadAllowance allowance_{steady_clock::now()};
  std::array<char, ReadAllowance::kPiece> room_{};
  std::size_t written_ = 0;   // of the last Write()
  std::size_t received_ = 0;  // octets in room_ that Read() has not handed over
  std::string outgoing_;
  std::string loss_;
  bool reading_ = false;
  bool writing_ = false;
};

/// The name of the group, or its number if it has none.
std::string GroupName(gid_t group) {
  std::array<char, 4096> room{};
  struct ::group entry {};
  struct ::group* found = nullptr;
  if (getgrgid_r(group, &entry, room.data(), room.size(), &found) != 0 || found == nullptr) {
    return std::to_string(group);
  }
  return entry.gr_name;
}

std::string NoPermission(const std::string& device) {
  struct stat status {};
  if (stat(device.c_str(), &status) != 0) {
    return fmt::format("no permission for {}; a folder above it cannot be searched", device);
  }
  const std::string group = GroupName(status.st_gid);
  const bool group_may = (status.st_mode & S_IRGRP) != 0 && (status.st_mode & S_IWGRP) != 0;
  if (!group_may || status.st_gid == 0) {
    return fmt::format(
        "no permission for {}, which belongs to group {} with mode {:03o}; let a udev rule give it "
        "to the group dialout",
        device, group, status.st_mode & 0777U);
  }
  return fmt::format(
      "no permission for {}, which belongs to group {}; add the user to that group (sudo usermod "
      "-aG {} USER) and log in again",
      device, group, group);
}

std::string WhyNotOpened(const std::string& device, int error) {
  switch (error) {
    case ENOENT: return device + " does not exist; is the modem plugged in and switched on?";
    case EACCES:
    case EPERM: return NoPermission(device);
    case EBUSY:
      return fmt::format("{} is in use by another program (fuser -v {} shows which)", device,
                         device);
    case EISDIR: return device + " is a folder, not a serial device";
    default: return device + ": " + std::generic_category().message(error);
  }
}

/// Two programs on one modem steal each other's answers. The terminal's exclusive mode keeps others
/// out; the lock also keeps out those that may open it anyway (root).
void TakeExclusively(int descriptor, const std::string& device) {
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    throw LineError(WhyNotOpened(device, errno == EWOULDBLOCK ? EBUSY : errno));
  }
  if (ioctl(descriptor, TIOCEXCL) != 0) throw LineError(WhyNotOpened(device, errno));
}

void MakeRaw(int descriptor, const std::string& device) {
  termios settings{};
  if (tcgetattr(descriptor, &settings) != 0) throw LineError(WhyNotOpened(device, errno));
  cfmakeraw(&settings);
  settings.c_cflag |= CREAD | CLOCAL;  // the modem's carrier detect says nothing about commands
  if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
    throw LineError(WhyNotOpened(device, errno));
  }
}

std::unique_ptr<SerialLine> OpenSerial(const ModemTarget& target, WaitLoop& loop) {
  using asio::serial_port;
  Descriptor descriptor(open(target.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (descriptor.get() < 0) throw LineError(WhyNotOpened(target.device, errno));
  if (isatty(descriptor.get()) == 0) {
    throw LineError(target.device + " is not a serial device");
  }
  TakeExclusively(descriptor.get(), target.device);
  MakeRaw(descriptor.get(), target.device);
  serial_port port(loop.io(), descriptor.get());
  descriptor.Release();
  try {
    port.set_option(serial_port::baud_rate(target.baud));
    port.set_option(serial_port::character_size(8));
    port.set_option(serial_port::parity(serial_port::parity::none));
    port.set_option(serial_port::stop_bits(serial_port::stop_bits::one));
    port.set_option(serial_port::flow_control(target.flow == FlowControl::kRtsCts
                                                  ? serial_port::flow_control::hardware
                                                  : serial_port::flow_control::none));
  } catch (const boost::system::system_error& error) {
    throw LineError(fmt::format("{} does not accept its settings (baud={}): {}", target.device,
                                target.baud, error.code().message()));
  }
  tcflush(port.native_handle(), TCIOFLUSH);
  return std::make_unique<AsioLine<serial_port>>(std::move(port), loop);
}

/// A socket that the processes started by a block do not inherit.
tcp::socket MakeSocket(const tcp& protocol, WaitLoop& loop) {
  Descriptor descriptor(socket(protocol.family(), SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
  if (descriptor.get() < 0) throw LineError(std::generic_category().message(errno));
  tcp::socket made(loop.io(), protocol, descriptor.get());
  descriptor.Release();
  return made;
}

/// A modem may be silent for days: a server that has gone away is found by probes.
void ProbeConnection(tcp::socket& connection) {
  connection.set_option(tcp::no_delay(true));
  connection.set_option(asio::socket_base::keep_alive(true));
  const auto set = [&connection](int option, int value) {
    setsockopt(connection.native_handle(), IPPROTO_TCP, option, &value, sizeof value);
  };
  set(TCP_KEEPIDLE, 10);
  set(TCP_KEEPINTVL, 5);
  set(TCP_KEEPCNT, 3);
}

std::unique_ptr<SerialLine> Connect(const ModemTarget& target, WaitLoop& loop) {
  const auto deadline = steady_clock::now() + kConnectTime;
  boost::system::error_code error;
  const LookupResult found = LookUp(target.host, target.service, deadline, loop);
  if (found.addresses.empty()) throw LineError(target.Name() + ": " + found.error);
  for (const tcp::endpoint& address : found.addresses) {
    tcp::socket connection = MakeSocket(address.protocol(), loop);
    bool done = false;
    connection.async_connect(address, [&](const boost::system::error_code& result) {
      error = result;
      done = true;
    });
    if (!loop.RunUntil(deadline, [&done] { return done; })) {
      boost::system::error_code ignored;
      connection.cancel(ignored);
      while (!done) loop.io().run_one();
      error = asio::error::timed_out;
    }
    if (error) continue;
    ProbeConnection(connection);
    return std::make_unique<AsioLine<tcp::socket>>(std::move(connection), loop);
  }
  throw LineError(
      fmt::format("{}: {}; is the serial device server running?", target.Name(), error.message()));
}

}  // namespace

std::unique_ptr<SerialLine> OpenLine(const ModemTarget& target, WaitLoop& loop) {
  try {
    return target.device.empty() ? Connect(target, loop) : OpenSerial(target, loop);
  } catch (const boost::system::system_error& error) {
    throw LineError(target.Name() + ": " + error.code().message());
  }
}

}  // namespace corvane
