// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_login.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <utility>

namespace corvane_mail {
namespace {

/// Writes the octets as Base64 (RFC 4648 clause 4). A function of its own, since it must not leave
/// copies of the secret in memory. `base64` has the right size.
void EncodeBase64(std::string_view octets, std::span<char> base64) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto octet = [octets](std::size_t i) {
    return i < octets.size() ? static_cast<unsigned char>(octets[i]) : 0U;
  };
  for (std::size_t i = 0, out = 0; i < octets.size(); i += 3, out += 4) {
    const unsigned group = octet(i) << 16 | octet(i + 1) << 8 | octet(i + 2);
    for (std::size_t digit = 0; digit < 4; ++digit) {
      const bool pads = i + digit > octets.size();
      base64[out + digit] = pads ? '=' : kDigits[group >> (18 - 6 * digit) & 0x3F];
    }
  }
}

bool Contains(std::string_view text, std::string_view piece) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  const auto same = [lower](char a, char b) { return lower(a) == lower(b); };
  return !piece.empty() &&
         std::search(text.begin(), text.end(), piece.begin(), piece.end(), same) != text.end();
}

/// True if the text has eight octets in a row of `sent`, or all of a shorter one.
bool ContainsPiece(std::string_view text, std::string_view sent) {
  constexpr std::size_t kPiece = 8;
  if (sent.size() <= kPiece) return Contains(text, sent);
  for (std::size_t i = 0; i + kPiece <= sent.size(); ++i) {
    if (Contains(text, sent.substr(i, kPiece))) return true;
  }
  return false;
}

/// The texts one after the other.
LockedMemory Join(std::initializer_list<std::string_view> texts) {
  std::size_t size = 0;
  for (const std::string_view text : texts) size += text.size();
  LockedMemory joined(size);
  auto out = joined.octets().begin();
  for (const std::string_view text : texts) out = std::copy(text.begin(), text.end(), out);
  return joined;
}

LockedMemory Base64(std::string_view clear) {
  LockedMemory base64((clear.size() + 2) / 3 * 4);
  EncodeBase64(clear, base64.octets());
  return base64;
}

}  // namespace

const char* NameOf(Mechanism mechanism) {
  switch (mechanism) {
    case Mechanism::kNone: return "";
    case Mechanism::kPlain: return "PLAIN";
    case Mechanism::kLogin: return "LOGIN";
    case Mechanism::kXoauth2: return "XOAUTH2";
  }
  return "";
}

Mechanism ChooseMechanism(const SmtpFeatures& features, bool is_token) {
  if (is_token) return features.xoauth2 ? Mechanism::kXoauth2 : Mechanism::kNone;
  if (features.plain) return Mechanism::kPlain;
  return features.login ? Mechanism::kLogin : Mechanism::kNone;
}

SmtpLogin::SmtpLogin(std::string user, std::shared_ptr<const Secret> secret)
    : user_(std::move(user)), secret_(std::move(secret)) {
  sent_.push_back(Base64(secret_->text()));
}

std::string_view SmtpLogin::Begin(Mechanism mechanism) {
  using std::string_view_literals::operator""sv;
  mechanism_ = mechanism;
  continued_ = 0;
  const std::string_view secret = secret_->text();
  switch (mechanism) {
    case Mechanism::kPlain: return Say("AUTH PLAIN ", PlainMessage());
    case Mechanism::kXoauth2:
      return Say("AUTH XOAUTH2 ", Join({"user="sv, user_, "\1auth=Bearer "sv, secret, "\1\1"sv}));
    case Mechanism::kNone:
    case Mechanism::kLogin: break;
  }
  return "AUTH LOGIN\r\n";
}

std::string_view SmtpLogin::Continue() {
  ++continued_;
  switch (mechanism_) {
    case Mechanism::kPlain:  // a server that overlooks the message in the command asks for it
      return continued_ > 1 ? "" : Say("", PlainMessage());
    case Mechanism::kLogin:  // no two servers prompt with the same words; the order is the same
      if (continued_ == 1) return Say("", Join({user_}));
      return continued_ > 2 ? "" : Say("", Join({secret_->text()}));
    case Mechanism::kXoauth2:  // the reply tells what is wrong; an empty line gets the final one
      return continued_ > 1 ? "" : "\r\n";
    case Mechanism::kNone: break;
  }
  return "";
}

LockedMemory SmtpLogin::PlainMessage() const {
  using std::string_view_literals::operator""sv;
  return Join({"\0"sv, user_, "\0"sv, secret_->text()});
}

std::string_view SmtpLogin::Say(std::string_view command, const LockedMemory& clear) {
  LockedMemory base64 = Base64(clear.text());
  line_ = Join({command, base64.text(), "\r\n"});
  if (mechanism_ != Mechanism::kLogin) sent_.push_back(std::move(base64));
  return line_.text();
}

bool SmtpLogin::IsIn(const std::vector<std::string>& lines) const {
  std::string text;
  for (const std::string& line : lines) text += line;
  bool found = Contains(text, secret_->text());
  for (const LockedMemory& sent : sent_) found = found || ContainsPiece(text, sent.text());
  Wipe(text);
  return found;
}

}  // namespace corvane_mail
