// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/pseudo_terminal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "libs/base/descriptor.h"

namespace modem_simulator {
namespace {

namespace fs = std::filesystem;
using corvane::Descriptor;

constexpr std::chrono::milliseconds kLookAgain{10};

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::runtime_error(fmt::format("{}: {}", what, std::generic_category().message(errno)));
}

std::string DeviceOf(int master) {
  std::array<char, 128> name{};
  if (ptsname_r(master, name.data(), name.size()) != 0) ThrowErrno("pseudo-terminal");
  return name.data();
}

int OpenDevice(const std::string& device) {
  return open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// Switches echo and line editing off, whatever the programs that open it later expect. The setting
/// lasts as long as the terminal.
void MakeRaw(const std::string& device) {
  const Descriptor slave(OpenDevice(device));
  termios settings{};
  if (slave.get() < 0 || tcgetattr(slave.get(), &settings) != 0) ThrowErrno(device);
  cfmakeraw(&settings);
  if (tcsetattr(slave.get(), TCSANOW, &settings) != 0) ThrowErrno(device);
}

Descriptor NewTerminal() {
  Descriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (master.get() < 0 || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0) {
    ThrowErrno("pseudo-terminal");
  }
  return master;
}

/// Ensures that the next program does not read the last one's answers. False: the terminal cannot
/// be opened.
bool DropUnread(const std::string& device) {
  // Closed on return: while open, it would look like a program.
  const Descriptor slave(OpenDevice(device));
  if (slave.get() < 0) return false;
  tcflush(slave.get(), TCIFLUSH);
  return true;
}

/// Whether a program has the terminal open, or has left bytes in it.
bool InUse(int master) {
  pollfd state{master, POLLIN, 0};
  return poll(&state, 1, 0) >= 0 && ((state.revents & POLLHUP) == 0 || (state.revents & POLLIN));
}

}  // namespace

PseudoTerminal::PseudoTerminal(boost::asio::io_context& io, fs::path link, int bytes_per_second,
                               OnBytes on_bytes)
    : link_(std::move(link)),
      on_bytes_(std::move(on_bytes)),
      master_(io),
      writer_(master_, bytes_per_second),
      look_again_(io) {}

PseudoTerminal::~PseudoTerminal() {
  RemoveLink();
}

void PseudoTerminal::Plug() {
  Unplug();
  Descriptor master = NewTerminal();
  device_ = DeviceOf(master.get());
  MakeRaw(device_);
  master_.assign(master.Release());
  PointLink();
  AwaitProgram();
}

void PseudoTerminal::Unplug() {
  RemoveLink();
  look_again_.cancel();
  writer_.Clear();
  open_ = false;
  boost::system::error_code ignored;
  master_.close(ignored);
}

void PseudoTerminal::Write(std::string_view bytes) {
  if (open_) writer_.Write(bytes);
}

std::string PseudoTerminal::Address() const {
  const std::string device = "device=" + device_;
  return link_.empty() ? device : fmt::format("link={} {}", link_.string(), device);
}

/// The kernel does not report that a program has opened the terminal: look every few milliseconds.
void PseudoTerminal::AwaitProgram() {
  if (InUse(master_.native_handle())) {
    open_ = true;
    return Read();
  }
  look_again_.expires_after(kLookAgain);
  look_again_.async_wait([this](const auto& error) {
    if (!error && master_.is_open()) AwaitProgram();
  });
}

void PseudoTerminal::Read() {
  master_.async_read_some(boost::asio::buffer(input_),
                          [this](const boost::system::error_code& error, std::size_t size) {
                            if (error == boost::asio::error::operation_aborted) return;
                            if (!master_.is_open()) return;
                            if (error) return ProgramLeft();  // EIO
                            on_bytes_({input_.data(), size});
                            if (master_.is_open() && open_) Read();
                          });
}

void PseudoTerminal::ProgramLeft() {
  open_ = false;
  writer_.Clear();
  // A program that claimed the terminal for itself (TIOCEXCL) has locked it for good: on a
  // pseudo-terminal the claim outlives the program. A new one takes its place.
  if (!DropUnread(device_)) return Plug();
  AwaitProgram();
}

/// The link changes in one step, so that a program never finds it missing or half made.
void PseudoTerminal::PointLink() {
  if (link_.empty()) return;
  std::error_code error;
  if (fs::exists(fs::symlink_status(link_, error)) && !fs::is_symlink(link_, error)) {
    throw std::runtime_error(fmt::format(
        "{} exists and is not a link; remove it or choose another name", link_.string()));
  }
  const fs::path fresh = link_.string() + fmt::format(".{}", getpid());
  fs::create_symlink(device_, fresh, error);
  if (!error) fs::rename(fresh, link_, error);
  if (!error) return;
  std::error_code ignored;
  fs::remove(fresh, ignored);
  throw std::runtime_error(fmt::format("link {}: {}", link_.string(), error.message()));
}

void PseudoTerminal::RemoveLink() {
  if (link_.empty() || device_.empty()) return;
  std::error_code error;
  // It may point to another simulator's terminal by now.
  if (fs::read_symlink(link_, error) == device_) fs::remove(link_, error);
}

}  // namespace modem_simulator
