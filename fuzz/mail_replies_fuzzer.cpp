// SPDX-License-Identifier: MIT
// Two mails for a server whose replies are any octets. The first octet chooses the login and how
// the connection ends; the others are the server's, in pieces that 0x1E separates: it sends one
// after each command, and when the client says nothing more. Where every piece is one whole reply,
// a simpler client predicts what becomes of the first mail.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "addins/corvane_mail/mail_carrier.h"
#include "fuzz/require.h"
#include "libs/base/descriptor.h"
#include "libs/base/printable.h"

namespace {

using corvane::Descriptor;
using corvane_mail::Attempt;
using corvane_mail::End;
using corvane_mail::MailCarrier;
using corvane_mail::Outcome;

constexpr std::string_view kContent = "Subject: alarm\r\n\r\n.dot\r\n";

struct Choice {
  bool has_user = false;
  bool is_token = false;
  bool resets = false;
};

/// A socket that listens on the loopback interface as long as the program runs.
int Listener() {
  static const int listener = [] {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Require(bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    Require(listen(made, 16) == 0);
    return made;
  }();
  return listener;
}

int Port() {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  Require(getsockname(Listener(), reinterpret_cast<sockaddr*>(&address), &length) == 0);
  return ntohs(address.sin_port);
}

class Server {
 public:
  Server(std::vector<std::string_view> pieces, bool resets)
      : pieces_(std::move(pieces)), resets_(resets) {
    while (Accept().get() >= 0) continue;  // what the last input has left behind
  }

  /// Accepts, hears, answers. @param is_stuck the client waits, so it gets more
  /// @return true if anything has happened
  bool Step(bool is_stuck) {
    if (connection_.get() < 0) {
      connection_ = Accept();
      if (connection_.get() < 0) return false;
      pending_.clear();
      Answer();
      return true;
    }
    std::array<char, 65536> octets;
    const ssize_t length = recv(connection_.get(), octets.data(), octets.size(), 0);
    if (length == 0) connection_ = Descriptor();
    if (length > 0) Hear({octets.data(), static_cast<std::size_t>(length)});
    if (length < 0 && is_stuck) Answer();
    return length >= 0 || is_stuck;
  }

  [[nodiscard]] const std::string& heard() const { return heard_; }
  /// How many mails it has heard to their end.
  [[nodiscard]] int dots() const { return dots_; }

 private:
  static Descriptor Accept() {
    return Descriptor(accept4(Listener(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  }

  void Hear(std::string_view octets) {
    heard_ += octets;
    pending_ += octets;
    const bool is_mail = pending_.starts_with(kContent.substr(0, 8));
    if (!pending_.ends_with(is_mail ? "\r\n.\r\n" : "\r\n")) return;
    if (is_mail) ++dots_;
    pending_.clear();
    Answer();
  }

  void Answer() {
    if (next_ == pieces_.size()) {
      if (resets_) {
        const linger at_once{1, 0};
        setsockopt(connection_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        connection_ = Descriptor();
      } else {  // what is on its way is still heard
        shutdown(connection_.get(), SHUT_WR);
      }
      return;
    }
    const std::string_view piece = pieces_[next_++];
    // The buffers of the sockets take every input that a fuzzer makes.
    send(connection_.get(), piece.data(), piece.size(), MSG_NOSIGNAL);
  }

  std::vector<std::string_view> pieces_;
  bool resets_;
  std::size_t next_ = 0;
  Descriptor connection_;
  int dots_ = 0;
  std::string heard_;
  std::string pending_;
};

/// The code of a piece that is one whole reply with one code, and nothing more.
std::optional<int> CodeOf(std::string_view piece) {
  std::string_view code;
  for (bool is_last = false; !is_last;) {
    const std::size_t end = piece.find("\r\n");
    if (end == std::string_view::npos || end < 4 || end > 200) return std::nullopt;
    const std::string_view line = piece.substr(0, end);
    const bool is_text =
        std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (!is_text || (line[3] != ' ' && line[3] != '-')) return std::nullopt;
    if (!code.empty() && line.substr(0, 3) != code) return std::nullopt;
    code = line.substr(0, 3);
    is_last = line[3] == ' ';
    piece.remove_prefix(end + 2);
  }
  const bool is_number =
      std::all_of(code.begin(), code.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!piece.empty() || !is_number || code[0] < '2' || code[0] > '5') return std::nullopt;
  return (code[0] - '0') * 100 + (code[1] - '0') * 10 + (code[2] - '0');
}

/// What becomes of a mail without a login, for one recipient.
End Predict(const std::vector<int>& codes) {
  std::size_t next = 0;
  const auto reply = [&] { return next < codes.size() ? codes[next++] : 0; };
  const auto failure = [](int code) { return code / 100 == 5 ? End::kRefused : End::kForNow; };
  if (reply() / 100 != 2) return End::kForNow;                        // the greeting
  if (reply() / 100 != 2 && reply() / 100 != 2) return End::kForNow;  // EHLO, HELO
  if (const int mail = reply(); mail / 100 != 2) return mail == 530 ? End::kLogin : failure(mail);
  if (const int recipient = reply(); recipient / 100 != 2) return failure(recipient);
  if (const int data = reply(); data != 354) return failure(data);
  switch (reply() / 100) {
    case 2: return End::kTaken;
    case 4: return End::kForNow;
    case 5: return End::kRefused;
    default: return End::kUnknown;
  }
}

std::optional<End> Predict(const std::vector<std::string_view>& pieces) {
  std::vector<int> codes;
  for (const std::string_view piece : pieces) {
    const auto code = CodeOf(piece);
    if (!code) return std::nullopt;
    codes.push_back(*code);
  }
  // A limit of the size would have to be read; libcurl has its own mind about codes below 200.
  const bool may_have_size = pieces.size() > 1 && pieces[1].find_first_of("sS") != pieces[1].npos;
  return may_have_size ? std::nullopt : std::optional<End>(Predict(codes));
}

Attempt MakeAttempt(std::int64_t id, const Choice& choice) {
  Attempt attempt;
  attempt.id = id;
  attempt.account.server = "127.0.0.1";
  attempt.account.port = Port();
  attempt.account.security = corvane_mail::Security::kNone;
  if (choice.has_user) {
    attempt.account.user = "plc";
    attempt.secret = std::make_shared<corvane_mail::Secret>("s3cret");
    attempt.is_token = choice.is_token;
  }
  attempt.from = "pump3@plant.example";
  attempt.recipients = {"anna@plant.example"};
  auto at = std::make_shared<std::size_t>(0);
  attempt.open = [at](bool) {
    *at = 0;
    return kContent.size();
  };
  attempt.read = [at](std::span<char> buffer) {
    const std::size_t octets = kContent.copy(buffer.data(), buffer.size(), *at);
    *at += octets;
    return octets;
  };
  return attempt;
}

std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

void CheckText(const std::string& text, bool has_user) {
  Require(text.size() < 4000);
  Require(corvane::Printable(text) == text);
  if (!has_user) return;  // then the words are not secret
  const std::string lower = Lower(text);
  Require(lower.find("s3cret") == std::string::npos);
  Require(lower.find("cznjcmv0") == std::string::npos);
}

void CheckOutcome(const Outcome& outcome, bool has_user) {
  CheckText(outcome.reason, has_user);
  CheckText(outcome.last.text, has_user);
  Require(outcome.reason.empty() == (outcome.end == End::kTaken));
  Require(outcome.last.code == 0 || (outcome.last.code >= 200 && outcome.last.code <= 599));
  Require(outcome.end != End::kAborted);
  Require(outcome.recipients.size() == 1);
  if (outcome.end == End::kTaken) {
    Require(outcome.last.code / 100 == 2 && outcome.recipients[0].code / 100 == 2);
  }
}

std::vector<std::string_view> Split(std::string_view octets) {
  std::vector<std::string_view> pieces;
  for (bool is_last = octets.empty(); !is_last;) {
    const std::size_t end = octets.find('\x1E');
    is_last = end == std::string_view::npos;
    pieces.push_back(octets.substr(0, end));
    if (!is_last) octets.remove_prefix(end + 1);
  }
  return pieces;
}

/// Carries both mails to their ends.
/// @param may_wait replies may be incomplete, so that the client waits for more
std::vector<Outcome> Carry(const Choice& choice, Server& server, bool may_wait) {
  constexpr int kPatience = 50;  // idle rounds; on a busy machine the octets may be on their way
  MailCarrier carrier(std::chrono::milliseconds(0));
  carrier.Begin(MakeAttempt(1, choice));
  carrier.Begin(MakeAttempt(2, choice));
  std::vector<Outcome> outcomes;
  int idle = 0;
  for (int round = 0; outcomes.size() < 2; ++round) {
    Require(round < 100'000'000);
    for (Outcome& outcome : carrier.Poll(std::chrono::milliseconds(0))) {
      outcomes.push_back(std::move(outcome));
    }
    idle = server.Step(may_wait && idle >= kPatience) ? 0 : idle + 1;
  }
  return outcomes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 200'000) return 0;
  const Choice choice{(data[0] & 1) != 0, (data[0] & 2) != 0, (data[0] & 4) != 0};
  const auto pieces = Split({reinterpret_cast<const char*>(data) + 1, size - 1});
  Server server(pieces, choice.resets);
  const auto predicted = Predict(pieces);
  const std::vector<Outcome> outcomes = Carry(choice, server, !predicted);

  Require(outcomes.size() == 2 && outcomes[0].id == 1 && outcomes[1].id == 2);
  int sent = 0;
  for (const Outcome& outcome : outcomes) {
    CheckOutcome(outcome, choice.has_user);
    sent += outcome.end == End::kTaken || outcome.end == End::kUnknown ? 1 : 0;
  }
  Require(choice.resets || sent <= server.dots());
  Require(choice.has_user || server.heard().find("AUTH") == std::string::npos);
  if (!choice.has_user && predicted) Require(outcomes[0].end == *predicted);
  return 0;
}
