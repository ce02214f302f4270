// SPDX-License-Identifier: MIT
#include "libs/mail/address.h"

#include <utf8.h>

#include <strings.h>
#include <algorithm>
#include <optional>
#include <span>

#include "libs/base/printable.h"
#include "libs/mail/address_tokens.h"
#include "libs/mail/header_text.h"
#include "libs/mail/mail_domain.h"

namespace mail {
namespace {

constexpr std::size_t kLongestLocal = 64;     // RFC 5321 clause 4.5.3.1.1
constexpr std::size_t kLongestMailbox = 254;  // clause 4.5.3.1.3, without the angle brackets
constexpr std::size_t kLongestName = 255;     // so that 100 of them stay within what servers take

using TokenSpan = std::span<const Token>;

/// Part of an address, or why there is none.
struct AddressPart {
  std::string text;
  std::string problem;
};

bool IsDotAtom(std::string_view local) {
  return !local.empty() && !local.starts_with('.') && !local.ends_with('.') &&
         local.find("..") == local.npos && std::all_of(local.begin(), local.end(), [](char c) {
           return c == '.' || IsAtomText(c) || !IsAscii(c);
         });
}

AddressPart ReadLocalWord(const std::string& word) {
  if (IsDotAtom(word)) return {word, {}};
  const auto wrong = std::find_if(word.begin(), word.end(),
                                  [](char c) { return c != '.' && !IsAtomText(c) && IsAscii(c); });
  if (wrong == word.end()) {
    return {{}, "the part before the @ begins or ends with a dot, or has two in a row; correct it"};
  }
  return {{},
          "'" + std::string(1, *wrong) +
              "' cannot be before the @ without quotation marks; correct it"};
}

AddressPart ReadQuotedLocal(const std::string& text) {
  const bool printable =
      std::none_of(text.begin(), text.end(), [](char c) { return IsAscii(c) && c < ' '; });
  if (!printable) return {{}, "there is a tab or line break before the @; remove it"};
  return {IsDotAtom(text) ? text : Quoted(text), {}};
}

AddressPart ReadLocal(TokenSpan tokens) {
  if (tokens.empty()) return {{}, "nothing is before the @; write it as name@domain"};
  if (tokens.size() > 1) {
    return {{},
            "there is a blank or more before the @; put the address in angle brackets, as in "
            "Pump 3 <pump3@plant.example>"};
  }
  const Token& token = tokens.front();
  if (token.kind == TokenKind::kLiteral)
    return {{}, "square brackets cannot be before the @; remove them"};
  AddressPart local =
      token.kind == TokenKind::kQuoted ? ReadQuotedLocal(token.text) : ReadLocalWord(token.text);
  if (local.text.size() > kLongestLocal) {
    return {{}, "the part before the @ has more than 64 octets; correct it"};
  }
  return local;
}

AddressPart ReadDomainTokens(TokenSpan tokens) {
  if (tokens.empty()) return {{}, "nothing follows the @; write it as name@domain"};
  const Token& token = tokens.front();
  if (tokens.size() > 1 || token.kind == TokenKind::kQuoted) {
    return {
        {},
        "more than a domain follows the @; separate addresses with ; or , and put names before the "
        "address, which is then in angle brackets"};
  }
  Domain domain =
      token.kind == TokenKind::kLiteral ? ReadAddressLiteral(token.text) : ReadDomain(token.text);
  return {std::move(domain.ascii), std::move(domain.problem)};
}

AddressPart ReadMailbox(TokenSpan tokens) {
  const auto is_at = [](const Token& token) { return token.Is('@'); };
  const auto at = std::find_if(tokens.begin(), tokens.end(), is_at);
  if (at == tokens.end()) {
    return {{},
            "there is no @; write it as name@domain, and a name with a comma or semicolon in "
            "quotation marks"};
  }
  if (std::any_of(at + 1, tokens.end(), is_at))
    return {{}, "there is more than one @; separate addresses with ; or ,"};
  const auto before = static_cast<std::size_t>(at - tokens.begin());
  AddressPart local = ReadLocal(tokens.first(before));
  if (!local.problem.empty()) return local;
  AddressPart domain = ReadDomainTokens(tokens.subspan(before + 1));
  if (!domain.problem.empty()) return domain;
  std::string mailbox = local.text + "@" + domain.text;
  if (mailbox.size() > kLongestMailbox) return {{}, "it has more than 254 octets; correct it"};
  return {std::move(mailbox), {}};
}

AddressPart ReadName(TokenSpan tokens) {
  AddressPart name;
  for (const Token& token : tokens) {
    if (token.kind == TokenKind::kSpecial || token.kind == TokenKind::kLiteral) {
      return {{}, "the name contains " + token.text + "; put the name in quotation marks"};
    }
    if (token.kind == TokenKind::kWord && token.text.find('\\') != token.text.npos) {
      return {{}, "the name contains a backslash; put the name in quotation marks"};
    }
    if (!name.text.empty()) name.text += ' ';
    name.text += token.text;
  }
  name.text = OneLine(name.text);
  if (name.text.size() > kLongestName) return {{}, "the name has more than 255 octets; shorten it"};
  return name;
}

/// What is wrong with the angle brackets; empty: nothing. @param open where the first < is
std::string BracketProblem(TokenSpan tokens, std::size_t open) {
  const TokenSpan inside = tokens.subspan(open + 1);
  const auto close =
      std::find_if(inside.begin(), inside.end(), [](const Token& token) { return token.Is('>'); });
  if (close == inside.end()) return "a < has no matching >; add it";
  if (close + 1 != inside.end()) {
    return "something follows the >; separate addresses with ; or , and put names before the <";
  }
  if (inside.front().Is('@')) return "it has a route; give the address alone, as name@domain";
  if (std::any_of(inside.begin(), close, [](const Token& token) { return token.Is('<'); })) {
    return "there is more than one <; remove one";
  }
  return {};
}

struct ListEntry {
  Address address;
  std::string problem;
};

ListEntry ReadEntry(TokenSpan tokens) {
  const auto find = [tokens](char special) {
    return static_cast<std::size_t>(
        std::find_if(tokens.begin(), tokens.end(),
                     [special](const Token& token) { return token.Is(special); }) -
        tokens.begin());
  };
  const std::size_t open = find('<');
  if (find(':') < open) return {{}, "it is a group, or has a colon; give the addresses themselves"};
  TokenSpan mailbox_tokens = tokens;
  AddressPart name;
  if (open < tokens.size()) {
    if (find('>') < open) return {{}, "a > is before the <; correct it"};
    if (std::string problem = BracketProblem(tokens, open); !problem.empty())
      return {{}, std::move(problem)};
    name = ReadName(tokens.first(open));
    if (!name.problem.empty()) return {{}, std::move(name.problem)};
    mailbox_tokens = tokens.subspan(open + 1, tokens.size() - open - 2);
  } else if (find('>') < tokens.size()) {
    return {{}, "a > has no matching <; add it"};
  }
  AddressPart mailbox = ReadMailbox(mailbox_tokens);
  return {{std::move(name.text), std::move(mailbox.text)}, std::move(mailbox.problem)};
}

std::string ShownAddress(std::string_view entry) {
  constexpr std::size_t kLongest = 60;
  constexpr std::string_view kBlanks = " \t\r\n";
  entry.remove_prefix(std::min(entry.find_first_not_of(kBlanks), entry.size()));
  while (!entry.empty() && kBlanks.find(entry.back()) != kBlanks.npos) entry.remove_suffix(1);
  return "'" + corvane::PrintableBeginning(entry, kLongest) + "'";
}

/// As SMTP compares mailboxes (RFC 5321 clause 2.4): only the domain in any case.
bool IsSame(const Address& one, const Address& other) {
  const std::string_view domain = DomainOf(one);
  return one.mailbox.size() == other.mailbox.size() &&
         std::equal(one.mailbox.begin(),
                    one.mailbox.end() - static_cast<std::ptrdiff_t>(domain.size()),
                    other.mailbox.begin()) &&
         strcasecmp(std::string(domain).c_str(), std::string(DomainOf(other)).c_str()) == 0;
}

/// The entries of a list, one after another.
class AddressListReader {
 public:
  explicit AddressListReader(std::string_view text) : text_(text), tokens_(text) {}

  AddressList Read() {
    while (ReadNext()) {
    }
    return std::move(list_);
  }

 private:
  /// @return whether there may be more
  bool ReadNext() {
    const std::size_t begin = tokens_.place();
    std::vector<Token> entry;
    Token token = tokens_.Next();
    for (; token.kind < TokenKind::kSeparator; token = tokens_.Next())
      entry.push_back(std::move(token));
    const std::size_t end = tokens_.place() - (token.kind == TokenKind::kSeparator ? 1 : 0);
    if (!entry.empty() || token.kind == TokenKind::kProblem) {
      ++number_;
      // What follows a problem of the words is unknown, so the rest of the text is shown.
      const bool whole = token.kind != TokenKind::kProblem;
      ListEntry read = whole ? ReadEntry(entry) : ListEntry{{}, std::move(token.text)};
      if (!read.problem.empty())
        return Refuse(text_.substr(begin, whole ? end - begin : text_.npos), read.problem);
      if (!Add(std::move(read.address))) return false;
    }
    return token.kind == TokenKind::kSeparator;
  }

  bool Refuse(std::string_view entry, std::string_view problem) {
    list_.addresses.clear();
    list_.problem = "address " + std::to_string(number_) + ", " + ShownAddress(entry) + ": " +
                    std::string(problem);
    return false;
  }

  bool Add(Address address) {
    auto& addresses = list_.addresses;
    if (std::any_of(addresses.begin(), addresses.end(),
                    [&address](const Address& other) { return IsSame(address, other); })) {
      return true;
    }
    if (addresses.size() == kMaxAddresses) {
      addresses.clear();
      list_.problem =
          "there are more than " + std::to_string(kMaxAddresses) + " addresses; use several mails";
      return false;
    }
    addresses.push_back(std::move(address));
    return true;
  }

  std::string_view text_;
  AddressTokens tokens_;
  AddressList list_;
  std::size_t number_ = 0;  // of the entry being read, empty ones not counted
};

}  // namespace

AddressList ReadAddresses(std::string_view text) {
  const auto wrong =
      static_cast<std::size_t>(utf8::find_invalid(text.begin(), text.end()) - text.begin());
  if (wrong < text.size()) {
    return {{},
            "the text is not valid UTF-8: octet " + std::to_string(wrong + 1) +
                " is wrong; check how it was made"};
  }
  return AddressListReader(text).Read();
}

AddressList ReadAddress(std::string_view text) {
  AddressList list = ReadAddresses(text);
  if (!list.problem.empty()) return list;
  if (list.addresses.empty()) list.problem = "there is no address; write it as name@domain";
  if (list.addresses.size() > 1) {
    list.addresses.clear();
    list.problem = ShownAddress(text) + " is more than one address; give one";
  }
  return list;
}

bool NeedsSmtpUtf8(const Address& address) {
  return !std::all_of(address.mailbox.begin(), address.mailbox.end(), IsAscii);
}

std::string_view DomainOf(const Address& address) {
  const std::size_t at = address.mailbox.rfind('@');
  return at == address.mailbox.npos ? std::string_view()
                                    : std::string_view(address.mailbox).substr(at + 1);
}

}  // namespace mail
