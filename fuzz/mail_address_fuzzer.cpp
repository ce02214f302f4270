// SPDX-License-Identifier: MIT
// Lists of mail addresses from any octets: either a sentence, or addresses within the limits, which
// are read again as they are, one by one and as a list.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/require.h"
#include "libs/mail/address.h"

namespace {

bool HasControl(std::string_view text, std::string_view except = {}) {
  return std::any_of(text.begin(), text.end(), [except](char c) {
    return (static_cast<unsigned char>(c) < ' ' || c == '\x7F') && except.find(c) == except.npos;
  });
}

std::string Written(const mail::Address& address) {
  if (address.name.empty()) return address.mailbox;
  std::string text = "\"";
  for (const char c : address.name) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + "\" <" + address.mailbox + ">";
}

void RequireWithinLimits(const mail::Address& address) {
  const std::size_t at = address.mailbox.rfind('@');
  Require(at != address.mailbox.npos && at >= 1 && at <= 64 && address.mailbox.size() <= 254);
  Require(!HasControl(address.mailbox) && !HasControl(address.name, "\t"));
  const std::string_view domain = mail::DomainOf(address);
  Require(!domain.empty() && std::all_of(domain.begin(), domain.end(), [](char c) {
    return std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-:[]")
               .find(c) != std::string_view::npos;
  }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  const mail::AddressList list = mail::ReadAddresses(input);
  if (!list.problem.empty()) {
    Require(list.addresses.empty() && !HasControl(list.problem) && list.problem.size() < 1000);
    return 0;
  }
  Require(list.addresses.size() <= mail::kMaxAddresses);
  std::string all;
  for (const mail::Address& address : list.addresses) {
    RequireWithinLimits(address);
    const std::string written = Written(address);
    const mail::AddressList again = mail::ReadAddress(written);
    Require(again.addresses.size() == 1 && again.addresses.front() == address);
    all += written + "\n";
  }
  Require(mail::ReadAddresses(all).addresses == list.addresses);
  return 0;
}
